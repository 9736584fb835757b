// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/RawReports.h"

#include <algorithm>
#include <utility>

namespace tool::monitor {

void RawReports::take(Time time, std::uint32_t reportID, std::span<const std::uint8_t> report) {
  RawReport kept;
  if (latest_.size() == kKept) {  // its memory is used again
    kept = std::move(latest_.front());
    latest_.pop_front();
  }
  const auto bytes = report.first(std::min(report.size(), kBytes));
  std::vector<std::uint8_t>& before = before_[reportID & 0xffU];
  kept.time = time;
  kept.length = report.size();
  kept.bytes.assign(bytes.begin(), bytes.end());
  kept.isChanged.assign(bytes.size(), false);
  for (std::size_t i = 0; i < bytes.size() && !before.empty(); ++i)
    kept.isChanged[i] = i >= before.size() || before[i] != bytes[i];
  before.assign(bytes.begin(), bytes.end());
  latest_.push_back(std::move(kept));
}

}  // namespace tool::monitor
