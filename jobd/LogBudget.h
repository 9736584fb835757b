// SPDX-License-Identifier: Apache-2.0

// How much one source may write to the log.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace jobd {

/// A store of bytes that is refilled over time. What does not fit is left out and counted.
///
/// The log keeps 4 MiB, and the 4 MiB before. With this budget a job can write a lot at once, but
/// needs a quarter of an hour to push out what others wrote.
class LogBudget {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kCapacity = std::size_t{256} * 1024;
  static constexpr std::size_t kBytesPerMillisecond = 8;

  explicit LogBudget(Clock::time_point now) : filledAt_(now) {}

  /// Whether an entry of so many bytes may be written; if not, it is counted as left out.
  bool take(std::size_t bytes, Clock::time_point now) {
    fill(now);
    if (bytes > left_) {
      ++leftOut_;
      return false;
    }
    left_ -= bytes;
    return true;
  }

  [[nodiscard]] std::uint64_t leftOut() const { return leftOut_; }
  void forgetLeftOut() { leftOut_ = 0; }

 private:
  void fill(Clock::time_point now) {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(now - filledAt_);
    filledAt_ += passed;  // fractions of a millisecond count next time
    const auto enough = static_cast<std::int64_t>(kCapacity / kBytesPerMillisecond);
    const auto counted = std::clamp<std::int64_t>(passed.count(), 0, enough);
    left_ = std::min(kCapacity, left_ + static_cast<std::size_t>(counted) * kBytesPerMillisecond);
  }

  std::size_t left_ = kCapacity;
  Clock::time_point filledAt_;
  std::uint64_t leftOut_ = 0;
};

}  // namespace jobd
