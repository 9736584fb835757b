// Whether an object was made by this process or came to it from its parent by fork().
//
// A child has copies of the parent's objects and shares their descriptors, but has none of their
// threads, and locks may be held by threads that it lacks. What such an object would write, shut
// down or wait for is the parent's; all that is the child's own are the copies of the descriptors.
//
// Threading: any thread.
// Errors: none; std::bad_alloc where the first mark of a process cannot be registered.
#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

class ForkMark {
 public:
  ForkMark();
  [[nodiscard]] bool isInherited() const {
    return forks_ != forksSoFar.load(std::memory_order_relaxed);
  }

 private:
  /// Of this process and its ancestors: no two of them in one line have the same number.
  static std::atomic<std::uint64_t> forksSoFar;
  std::uint64_t forks_;
};

}  // namespace platform
