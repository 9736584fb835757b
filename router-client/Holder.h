// SPDX-License-Identifier: Apache-2.0

// A pointer that several threads load and replace.
//
// Threading: any thread. The lock covers one copy or one swap of the pointer: nothing is called and
//   nothing is destroyed under it.
// Ownership: the holder shares what it holds. A replaced value is destroyed after unlock.
// Order: all threads see the loads and exchanges of one holder in the same order.
#pragma once

#include <mutex>

namespace wlhid {

/// `Pointer` is std::shared_ptr or std::weak_ptr. (std::atomic of those is not clean under
/// ThreadSanitizer with GCC 12.)
template <class Pointer>
class Holder {
 public:
  [[nodiscard]] Pointer load() const {
    const std::lock_guard lock(mutex_);
    return pointer_;
  }

  /// Returns the previous pointer, for the caller to destroy.
  Pointer exchange(Pointer pointer) {
    const std::lock_guard lock(mutex_);
    pointer_.swap(pointer);
    return pointer;
  }

  /// Empties the holder if it still holds `expected`. `expected` keeps the object alive past the
  /// unlock.
  void clearIfHolding(const Pointer& expected) {
    const std::lock_guard lock(mutex_);
    if (pointer_ == expected) pointer_.reset();
  }

  /// The result of `question`, which must not call out, for the pointer.
  template <class Question>
  [[nodiscard]] auto ask(Question question) const {
    const std::lock_guard lock(mutex_);
    return question(pointer_);
  }

 private:
  mutable std::mutex mutex_;
  Pointer pointer_;
};

}  // namespace wlhid
