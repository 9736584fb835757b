// SPDX-License-Identifier: Apache-2.0

// How long something took, many times over.
//
// Percentiles are exact to one part in 64, and exactly right where all are alike; memory does not
// grow with their number.
//
// Threading: one thread at a time.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tool {

class Durations {
 public:
  using Time = std::chrono::microseconds;

  /// Not negative.
  void take(Time duration);

  [[nodiscard]] std::uint64_t count() const { return count_; }
  [[nodiscard]] Time longest() const { return longest_; }
  [[nodiscard]] Time total() const { return total_; }
  /// What `part` (0 to 1) of all do not exceed; 0 if there are none.
  [[nodiscard]] Time percentile(double part) const;

  struct Bar {
    Time from{};  ///< included
    Time to{};    ///< not included
    std::uint64_t count = 0;
  };
  /// How many are how long. Each bar is twice as wide as the one before it, empty ones at both ends
  /// are left out.
  [[nodiscard]] std::vector<Bar> histogram() const;

 private:
  static constexpr std::size_t kSteps = 64;      // of each doubling
  static constexpr std::size_t kDoublings = 42;  // up to some months
  static std::size_t indexOf(std::uint64_t microseconds);
  static std::uint64_t firstOf(std::size_t index);

  Time longest_{};
  Time total_{};
  std::uint64_t count_ = 0;
  struct Bucket {
    std::uint64_t count = 0;
    std::uint64_t total = 0;  // microseconds
  };
  std::array<Bucket, kSteps * kDoublings> buckets_{};
};

}  // namespace tool
