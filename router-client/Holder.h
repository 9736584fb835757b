// A place for one pointer that several threads load and replace.
//
// Threading: any thread. The lock covers one copy or one swap of the pointer, a few nanoseconds; it
//   spins, since a mutex costs as much as the whole rest of a delivery. Nothing is called and
//   nothing is destroyed under it.
// Ownership: the holder shares what it holds. A value that was replaced is destroyed after unlock.
// Errors: none.
// Order: loads and exchanges of one holder have one order that all threads see.
#pragma once

#include <atomic>
#include <thread>
#include <utility>

namespace wlhid {

class SpinLock {
 public:
  void lock() {
    while (taken_.test_and_set(std::memory_order_acquire)) {
      // A holder that was preempted needs the processor more than we do.
      while (taken_.test(std::memory_order_relaxed)) std::this_thread::yield();
    }
  }
  void unlock() { taken_.clear(std::memory_order_release); }

 private:
  std::atomic_flag taken_ = ATOMIC_FLAG_INIT;
};

/// `Pointer` is std::shared_ptr or std::weak_ptr. (std::atomic of those is not clean under
/// ThreadSanitizer with GCC 12.)
template <class Pointer>
class Holder {
 public:
  [[nodiscard]] Pointer load() const {
    const Guard guard(lock_);
    return pointer_;
  }

  /// Returns what was in place, for the caller to destroy.
  Pointer exchange(Pointer pointer) {
    const Guard guard(lock_);
    pointer_.swap(pointer);
    return pointer;
  }

  /// Empties the holder if it still holds `expected`. `expected` keeps the object alive past the
  /// unlock.
  void clearIfHolding(const Pointer& expected) {
    const Guard guard(lock_);
    if (pointer_ == expected) pointer_.reset();
  }

  /// What `question`, which must neither call out nor keep the pointer, says of it.
  template <class Question>
  [[nodiscard]] auto ask(Question question) const {
    const Guard guard(lock_);
    return question(pointer_);
  }

 private:
  class Guard {
   public:
    explicit Guard(SpinLock& lock) : lock_(lock) { lock_.lock(); }
    ~Guard() { lock_.unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    SpinLock& lock_;
  };

  mutable SpinLock lock_;
  Pointer pointer_;
};

}  // namespace wlhid
