// What clients have been sent and have not taken yet, which lies in the router's memory: by client,
// by user and in all.
//
// What was sent can't be taken back, so the bounds hold only if room is kept for those who come
// later: half of a bound is for whoever needs it, the other half in equal parts for as many clients
// as there can be. Once the first half is gone, a client may have no more than its part. Whoever
// reads stays below that and loses nothing; together they exceed the bound by a report each at
// most.
//
// Threading: any thread.
// Ownership: a share counts for as long as it lives, and keeps the backlog.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <atomic>
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
    std::atomic<std::size_t> bytes{0};
    /// What one of at most `clients` may have: `most`, or its part where the half that is for all
    /// is gone.
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

/// What one client has.
class Backlog::Share {
 public:
  Share(std::shared_ptr<Backlog> backlog, std::shared_ptr<Sum> ofUser)
      : backlog_(std::move(backlog)), ofUser_(std::move(ofUser)) {}
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;
  ~Share() { count(0); }

  /// The client has so many bytes now. Whether it may have a further report.
  bool admits(std::size_t unsent) { return unsent <= limit(unsent, limits().backlogOfClient); }
  /// The same for a client that is waited for: what it may have.
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
