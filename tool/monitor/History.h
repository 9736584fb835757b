// SPDX-License-Identifier: Apache-2.0

// The values of one element in the last seconds, a tenth of a second each.
//
// Threading: one thread at a time.
// Order: as Pace.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tool/monitor/Pace.h"

namespace tool::monitor {

class History {
 public:
  /// What stands for a tenth in which several values came.
  enum class Merge {
    Last,     ///< the last one
    Largest,  ///< so that a short press is not overlooked
    Farthest  ///< from zero; a tenth without a value then counts as zero
  };

  explicit History(Merge merge) : merge_(merge) {}

  void take(Time time, std::int64_t value);
  /// The last `count` tenths until now, the oldest first; nothing where no value is known.
  [[nodiscard]] std::vector<std::optional<std::int64_t>> until(Time now, std::size_t count) const;

 private:
  static constexpr std::int64_t kTenths = 128;
  struct Tenth {
    std::int64_t number = -1;
    std::int64_t shown = 0;
    std::int64_t last = 0;
  };

  Merge merge_;
  std::array<Tenth, kTenths> tenths_{};
};

}  // namespace tool::monitor
