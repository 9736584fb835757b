// SPDX-License-Identifier: Apache-2.0

// A token bucket: a burst, and then so many per second.
//
// Threading: one thread at a time.
// Order: times given to it must not decrease; an earlier one counts as the latest before it.
#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

#include "router/RouterLimits.h"

namespace router {

class TokenBucket {
 public:
  using Clock = std::chrono::steady_clock;

  explicit TokenBucket(Rate rate) : rate_(rate), tokens_(rate.burst) {}

  /// Takes a token and returns the time until it is valid, zero if it is now. Returns nothing, and
  /// takes none, if that would be longer than `maximumWait`.
  std::optional<Clock::duration> reserve(Clock::time_point now, Clock::duration maximumWait) {
    refill(now);
    const double missing = std::max(0.0, 1 - tokens_);
    const std::chrono::duration<double> wait(missing / rate_.perSecond);
    if (wait > maximumWait) return std::nullopt;
    tokens_ -= 1;
    return std::chrono::ceil<Clock::duration>(wait);
  }
  bool take(Clock::time_point now) { return reserve(now, Clock::duration::zero()).has_value(); }
  void giveBack() { tokens_ = std::min(rate_.burst, tokens_ + 1); }
  /// Whether it is like a new one.
  [[nodiscard]] bool isFull(Clock::time_point now) const {
    TokenBucket later = *this;
    later.refill(now);
    return later.tokens_ >= rate_.burst;
  }

 private:
  void refill(Clock::time_point now) {
    if (last_ && now > *last_) {
      const std::chrono::duration<double> passed = now - *last_;
      tokens_ = std::min(rate_.burst, tokens_ + passed.count() * rate_.perSecond);
    }
    last_ = last_ ? std::max(*last_, now) : now;
  }

  Rate rate_;
  double tokens_;
  std::optional<Clock::time_point> last_;
};

}  // namespace router
