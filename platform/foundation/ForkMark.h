// SPDX-License-Identifier: Apache-2.0

// Whether an object was created by this process or inherited from its parent by fork().
//
// A child has copies of the parent's objects and descriptors, but none of its threads, and locks
// may be held by threads that don't exist in the child. What such an object would write to, shut
// down or wait for belongs to the parent; only the copies of the descriptors belong to the child.
//
// Threading: any thread.
// Errors: std::bad_alloc if the process's first mark cannot be registered.
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
  /// Counts forks along the line of ancestors, so a process and its ancestors all differ.
  static std::atomic<std::uint64_t> forksSoFar;
  std::uint64_t forks_;
};

}  // namespace platform
