// What clients have been sent and have not taken yet, which lies in the router's memory: by client,
// by user and in all. A report that would make it more than its bound is lost to the slowest.
//
// Threading: any thread. Ownership: a share counts for as long as it lives, and keeps the backlog.
// Errors, Order: none.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

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
    std::size_t bytes = 0;
    std::size_t shares = 0;
    /// Whether a share of so many bytes is above its part while all have more than `bound`.
    [[nodiscard]] bool isExceededBy(std::size_t share, std::size_t bound) const {
      return bytes > bound && share > bound / shares;
    }
  };

  const RouterLimits limits_;
  std::mutex mutex_;
  Sum all_;
  std::map<uid_t, Sum> users_;
};

/// What one client has.
class Backlog::Share {
 public:
  Share(std::shared_ptr<Backlog> backlog, uid_t user);
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;
  ~Share();

  /// The client has so many bytes now. Whether it may have a further report: not when it alone has
  /// too much, nor when all of its user, or all in all, have too much and it has more than its part
  /// of that.
  bool admits(std::size_t unsent);
  /// What a client that is waited for may have. All of a user's together stay within their bound.
  [[nodiscard]] std::size_t waitLimit() const;
  [[nodiscard]] const RouterLimits& limits() const { return backlog_->limits_; }

 private:
  const std::shared_ptr<Backlog> backlog_;
  const uid_t user_;
  std::size_t bytes_ = 0;  // under the backlog's lock
};

}  // namespace router
