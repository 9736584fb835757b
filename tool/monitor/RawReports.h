// SPDX-License-Identifier: Apache-2.0

// The latest reports as they came, and what has changed in each.
//
// Threading: one thread at a time.
// Order: as taken.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "tool/monitor/Pace.h"

namespace tool::monitor {

struct RawReport {
  Time time{};
  std::vector<std::uint8_t> bytes;  ///< at most as many as are kept
  std::vector<bool> isChanged;      ///< since the report before with the same ID
  std::size_t length = 0;           ///< of all of it
};

class RawReports {
 public:
  static constexpr std::size_t kKept = 128;
  static constexpr std::size_t kBytes = 256;

  void take(Time time, std::uint32_t reportID, std::span<const std::uint8_t> report);
  [[nodiscard]] const std::deque<RawReport>& latest() const { return latest_; }

 private:
  std::deque<RawReport> latest_;
  std::array<std::vector<std::uint8_t>, 256> before_;  // by report ID
};

}  // namespace tool::monitor
