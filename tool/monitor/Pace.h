// SPDX-License-Identifier: Apache-2.0

// How fast and how evenly something comes.
//
// Threading: one thread at a time.
// Order: times do not go back; one that does counts as the latest.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace tool::monitor {

/// Since a beginning that all times share.
using Time = std::chrono::microseconds;

class Pace {
 public:
  void take(Time time);

  [[nodiscard]] std::uint64_t count() const { return count_; }
  /// In the second that ended with the last whole tenth.
  [[nodiscard]] double perSecond(Time now) const;

  /// Of the latest intervals, at most 1024. Pauses are left out: intervals of more than ten times
  /// the median.
  struct Intervals {
    Time median{};
    Time longOnes{};  ///< that 99 of 100 do not exceed
    Time jitter{};    ///< the mean distance from the median
  };
  [[nodiscard]] std::optional<Intervals> intervals() const;

 private:
  static constexpr std::size_t kIntervals = 1024;
  static constexpr std::int64_t kTenths = 16;
  struct Tenth {
    std::int64_t number = -1;
    std::uint64_t count = 0;
  };

  std::uint64_t count_ = 0;
  Time last_{};
  std::array<Time, kIntervals> intervals_{};
  std::array<Tenth, kTenths> tenths_{};
};

}  // namespace tool::monitor
