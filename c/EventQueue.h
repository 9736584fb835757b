// SPDX-License-Identifier: Apache-2.0

// Events on their way from the library's threads to the caller's, with a descriptor that tells when
// there are some.
//
// Threading: any thread brings them; one takes them.
// Ownership: an event that was taken stays as it is until the next one is.
// Errors: std::system_error without a descriptor.
// Order: as they were brought. Whoever brings more than may wait waits itself, until there is room
//   or the queue is closed.
#pragma once

#include <sys/eventfd.h>

#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/services/FileDescriptor.h"

namespace wlhid::abi {

template <class Event>
class EventQueue {
 public:
  static constexpr std::size_t kMostWaiting = 1024;

  EventQueue() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!descriptor_) throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  EventQueue(const EventQueue&) = delete;
  EventQueue& operator=(const EventQueue&) = delete;

  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

  void bring(Event event) {
    std::unique_lock lock(mutex_);
    hasRoom_.wait(lock, [this] { return isClosed_ || waiting_.size() < kMostWaiting; });
    if (isClosed_) return;
    if (waiting_.empty()) ::eventfd_write(descriptor_.get(), 1);
    waiting_.push_back(std::move(event));
  }
  /// Null if nothing waits.
  const Event* take() {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) return nullptr;
    taken_.emplace(std::move(waiting_.front()));
    waiting_.pop_front();
    eventfd_t count = 0;
    if (waiting_.empty()) ::eventfd_read(descriptor_.get(), &count);
    hasRoom_.notify_one();
    return &*taken_;
  }
  void close() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    hasRoom_.notify_all();
  }

 private:
  const platform::FileDescriptor descriptor_;
  std::mutex mutex_;
  std::condition_variable hasRoom_;
  std::deque<Event> waiting_;
  std::optional<Event> taken_;
  bool isClosed_ = false;
};

}  // namespace wlhid::abi
