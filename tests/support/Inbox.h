// SPDX-License-Identifier: Apache-2.0

// What other threads have reported, in order.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace testsupport {

template <class T>
class Inbox {
 public:
  void put(T item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }

  /// The oldest one, once there is one. Throws if none comes, which fails the test.
  T next() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kLongEnough, [&] { return !items_.empty(); }))
      throw std::runtime_error("nothing was reported");
    T item = std::move(items_.front());
    items_.pop_front();
    return item;
  }

  [[nodiscard]] std::size_t size() const {
    const std::lock_guard lock(mutex_);
    return items_.size();
  }

 private:
  static constexpr std::chrono::seconds kLongEnough{60};

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<T> items_;
};

}  // namespace testsupport
