// SPDX-License-Identifier: Apache-2.0

// What clients have been sent but have not read yet, which takes up the router's memory: per
// client, per user and in total.
//
// Data once sent cannot be taken back, so the limits hold only if room is kept for latecomers: half
// of a limit is first come, first served, and the other half is divided equally among the greatest
// number of clients there can be. Once the first half is used up, a client may have no more than
// its part. A client that keeps reading stays below that and loses nothing; together they exceed
// the limit by at most one report each.
//
// Threading: any thread.
// Ownership: a share counts as long as it lives, and keeps the backlog alive.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "router/RouterLimits.h"

namespace router {

class Backlog : public std::enable_shared_from_this<Backlog> {
 public:
  class Share;

  explicit Backlog(const RouterLimits& limits) : limits_(limits) {}
  /// For one client of that user.
  [[nodiscard]] std::shared_ptr<Share> share(uid_t user);

 private:
  struct Sum {
    std::atomic<std::size_t> bytes{0};
    /// What one of at most `clients` clients may have: `most`, or only its part once the common
    /// half is used up.
    [[nodiscard]] std::size_t limit(std::size_t most, std::size_t bound,
                                    std::size_t clients) const {
      const bool isPlenty = bytes.load(std::memory_order_relaxed) <= bound / 2;
      return isPlenty ? most : std::min(most, bound / 2 / clients);
    }
  };

  const RouterLimits limits_;
  Sum all_;
  std::mutex mutex_;
  std::map<uid_t, std::weak_ptr<Sum>> users_;
};

/// The backlog of one client.
class Backlog::Share {
 public:
  Share(std::shared_ptr<Backlog> backlog, std::shared_ptr<Sum> ofUser)
      : backlog_(std::move(backlog)), ofUser_(std::move(ofUser)) {}
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;
  ~Share() { count(0); }

  /// Records that the client has `unsent` bytes now. Returns whether it may have another report.
  bool admits(std::size_t unsent) { return unsent <= limit(unsent, limits().backlogPerClient); }
  /// The same for a client that the device waits for: how much it may have.
  [[nodiscard]] std::size_t waitLimit(std::size_t unsent) {
    return limit(unsent, limits().backlogWaitedFor);
  }
  [[nodiscard]] const RouterLimits& limits() const { return backlog_->limits_; }

 private:
  std::size_t limit(std::size_t unsent, std::size_t most);
  void count(std::size_t unsent);

  const std::shared_ptr<Backlog> backlog_;
  const std::shared_ptr<Sum> ofUser_;
  std::atomic<std::size_t> bytes_{0};
};

}  // namespace router
