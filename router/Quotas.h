// What clients share and therefore have only so much of: turns for their start requests, and lines
// of the log.
//
// Threading: any thread. No lock is held while anybody waits.
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

#include "router/TokenBucket.h"

namespace router {

/// Turns by user and for all users together.
class TurnQuota {
 public:
  using Time = TokenBucket::Clock::time_point;
  /// It has come when it is that user's turn among the requests of that user, and among all.
  struct Turn {
    uid_t user = 0;
    Time ofUser;
    Time ofAll;
    [[nodiscard]] Time due() const { return std::max(ofUser, ofAll); }
  };

  explicit TurnQuota(const RouterLimits& limits);
  /// A turn for a request of that user. Nothing where it is too far off.
  std::optional<Turn> reserve(uid_t user, Time now);
  /// The latest turn, of all and of that user, is not needed.
  void giveBack(uid_t user);

 private:
  const Rate rateOfUser_;
  const std::chrono::milliseconds patience_;
  std::mutex mutex_;
  TokenBucket all_;
  std::map<uid_t, TokenBucket> users_;
};

/// Lines of one writer: lets so many through and counts the others.
class LineBudget {
 public:
  explicit LineBudget(Rate rate) : bucket_(rate) {}
  /// Whether a line may be written now.
  bool admits(TokenBucket::Clock::time_point now);
  /// Lines that were left out since the last such question.
  std::uint64_t takeLeftOut() { return std::exchange(leftOut_, 0); }
  void leaveOut(std::uint64_t lines) { leftOut_ += lines; }
  [[nodiscard]] bool isUnused(TokenBucket::Clock::time_point now) const {
    return leftOut_ == 0 && bucket_.isFull(now);
  }

 private:
  TokenBucket bucket_;
  std::uint64_t leftOut_ = 0;
};

/// Log lines by user.
class LineQuota {
 public:
  struct LeftOut {
    uid_t user = 0;
    std::uint64_t lines = 0;
  };

  explicit LineQuota(const RouterLimits& limits) : rate_(limits.logLinesOfUser) {}
  /// Whether a line about that user may be written now. `returnLeftOut` then is how many before it
  /// were left out and have not been told of yet.
  bool admits(uid_t user, TokenBucket::Clock::time_point now, std::uint64_t* returnLeftOut);
  /// What was left out and has not been told of yet, of every user who may write again.
  std::vector<LeftOut> takeLeftOut(TokenBucket::Clock::time_point now);

 private:
  const Rate rate_;
  std::mutex mutex_;
  std::map<uid_t, LineBudget> users_;
};

}  // namespace router
