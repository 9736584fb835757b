// SPDX-License-Identifier: Apache-2.0

// Rate limits that clients share: turns for their requests, and log lines.
//
// Threading: any thread. No lock is held while anyone waits.
// Order: turns are given in the order of the requests.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "router/RouterLimits.h"
#include "router/TokenBucket.h"

namespace router {

/// Turns per user and for all users together.
class TurnQuota {
 public:
  using Time = TokenBucket::Clock::time_point;
  /// Comes when the request is next among those of its user and among all.
  struct Turn {
    uid_t user = 0;
    Time ofUser;
    Time ofAll;
    [[nodiscard]] Time due() const { return std::max(ofUser, ofAll); }
  };

  explicit TurnQuota(const RouterLimits& limits)
      : TurnQuota(limits.startsPerUser, limits.starts, limits.startTimeout) {}
  TurnQuota(Rate ofUser, Rate ofAll, std::chrono::milliseconds maximumWait)
      : ratePerUser_(ofUser), maximumWait_(maximumWait), all_(ofAll) {}
  /// A turn for a request of that user, or nothing if it would be too late.
  std::optional<Turn> reserve(uid_t user, Time now);
  /// Returns the latest turn of that user and of all, which was not needed.
  void giveBack(uid_t user);

 private:
  const Rate ratePerUser_;
  const std::chrono::milliseconds maximumWait_;
  std::mutex mutex_;
  TokenBucket all_;
  std::map<uid_t, TokenBucket> users_;
};

/// The log lines of one source: lets a limited number through and counts the rest.
class LineBudget {
 public:
  explicit LineBudget(Rate rate) : bucket_(rate) {}
  /// Whether a line may be written now.
  bool admits(TokenBucket::Clock::time_point now);
  /// Lines that were left out since the last call.
  std::uint64_t takeLeftOut() { return std::exchange(leftOut_, 0); }
  void leaveOut(std::uint64_t lines) { leftOut_ += lines; }
  [[nodiscard]] bool isUnused(TokenBucket::Clock::time_point now) const {
    return leftOut_ == 0 && bucket_.isFull(now);
  }

 private:
  TokenBucket bucket_;
  std::uint64_t leftOut_ = 0;
};

/// Log lines per user.
class LineQuota {
 public:
  struct LeftOut {
    uid_t user = 0;
    std::uint64_t lines = 0;
  };

  explicit LineQuota(const RouterLimits& limits) : rate_(limits.logLinesPerUser) {}
  /// Whether a line about that user may be written now. If so, `returnLeftOut` is the number of
  /// lines left out before it that have not been reported yet.
  bool admits(uid_t user, TokenBucket::Clock::time_point now, std::uint64_t* returnLeftOut);
  /// The unreported lines that were left out, for every user who may log again.
  std::vector<LeftOut> takeLeftOut(TokenBucket::Clock::time_point now);

 private:
  const Rate rate_;
  std::mutex mutex_;
  std::map<uid_t, LineBudget> users_;
};

}  // namespace router
