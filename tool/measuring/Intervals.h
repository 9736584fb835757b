// SPDX-License-Identifier: Apache-2.0

// The times between reports.
//
// Threading: one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>

#include "tool/measuring/Durations.h"

namespace tool {

class Intervals : private Durations {
 public:
  using Durations::Bar;
  using Durations::Time;

  /// `gap`: from when on an interval counts as a gap.
  explicit Intervals(Time gap = std::chrono::milliseconds(50)) : gap_(gap) {}

  /// A report at that time. A time before the last one begins anew, as in a recording made of
  /// several.
  void take(Time time);

  using Durations::count;
  using Durations::histogram;
  using Durations::longest;
  using Durations::percentile;
  using Durations::total;
  [[nodiscard]] Time gap() const { return gap_; }
  [[nodiscard]] std::uint64_t gaps() const { return gaps_; }

 private:
  Time gap_;
  Time last_{-1};
  std::uint64_t gaps_ = 0;
};

}  // namespace tool
