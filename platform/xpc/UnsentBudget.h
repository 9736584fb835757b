// SPDX-License-Identifier: Apache-2.0

// How many unsent bytes several connections may keep together: those of one user, and those of all.
//
// Threading: any thread. Connections check first and charge afterwards, so together they may exceed
//   the limit by one message each.
// Ownership: a user's budget holds the one for all users.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

namespace platform::xpc {

class UnsentBudget {
 public:
  explicit UnsentBudget(std::size_t limit, std::shared_ptr<UnsentBudget> ofAll = nullptr)
      : limit_(limit), ofAll_(std::move(ofAll)) {}

  [[nodiscard]] std::size_t taken() const { return taken_.load(std::memory_order_relaxed); }
  [[nodiscard]] bool allows(std::size_t bytes) const {
    const std::size_t now = taken();
    return now <= limit_ && bytes <= limit_ - now && (!ofAll_ || ofAll_->allows(bytes));
  }
  void take(std::size_t bytes) {
    taken_.fetch_add(bytes, std::memory_order_relaxed);
    if (ofAll_) ofAll_->take(bytes);
  }
  void giveBack(std::size_t bytes) {
    taken_.fetch_sub(bytes, std::memory_order_relaxed);
    if (ofAll_) ofAll_->giveBack(bytes);
  }

 private:
  const std::size_t limit_;
  const std::shared_ptr<UnsentBudget> ofAll_;
  std::atomic<std::size_t> taken_{0};
};

}  // namespace platform::xpc
