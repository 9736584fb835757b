// SPDX-License-Identifier: Apache-2.0

// Who wants to be told of changes.
//
// Threading: any thread; subscribers are told on the thread that tells, with no lock held.
// Ownership: a subscription lasts until its token goes; one notice may still be on its way then. A
//   token may outlive the list.
// Order: that of the subscriptions.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace platform {

class Subscribers : public std::enable_shared_from_this<Subscribers> {
 public:
  using Notice = std::function<void()>;

  [[nodiscard]] std::shared_ptr<void> add(Notice changed);
  void tell() const;
  [[nodiscard]] bool isEmpty() const;
  /// Of those that there are nobody is told any more.
  void clear();

 private:
  void remove(std::uint64_t number);

  mutable std::mutex mutex_;
  std::map<std::uint64_t, Notice> notices_;
  std::uint64_t latest_ = 0;
};

}  // namespace platform
