// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Pace.h"

#include <algorithm>
#include <span>
#include <vector>

namespace tool::monitor {

namespace {

constexpr Time kTenth = std::chrono::milliseconds(100);

/// Reorders them.
Time percentile(std::span<Time> intervals, std::size_t percent) {
  const std::size_t index = (intervals.size() * percent + 99) / 100 - 1;
  const auto at = intervals.begin() + static_cast<std::ptrdiff_t>(index);
  std::nth_element(intervals.begin(), at, intervals.end());
  return *at;
}

}  // namespace

void Pace::take(Time time) {
  time = std::max(time, last_);
  if (count_ > 0) intervals_[(count_ - 1) % kIntervals] = time - last_;
  last_ = time;
  ++count_;
  const std::int64_t number = time / kTenth;
  Tenth& tenth = tenths_[static_cast<std::size_t>(number % kTenths)];
  if (tenth.number != number) tenth = {number, 0};
  ++tenth.count;
}

double Pace::perSecond(Time now) const {
  const std::int64_t end = now / kTenth;
  std::uint64_t count = 0;
  for (const Tenth& tenth : tenths_) {
    if (tenth.number >= end - 10 && tenth.number < end) count += tenth.count;
  }
  return static_cast<double>(count);
}

std::optional<Pace::Intervals> Pace::intervals() const {
  if (count_ < 2) return std::nullopt;
  const auto known = static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(count_ - 1, kIntervals));
  std::vector<Time> latest(intervals_.begin(), intervals_.begin() + known);
  Intervals result;
  result.median = percentile(latest, 50);
  std::erase_if(latest, [&](Time each) { return each > 10 * result.median; });
  result.longOnes = percentile(latest, 99);
  Time sum{};
  for (const Time each : latest) sum += std::chrono::abs(each - result.median);
  result.jitter = sum / static_cast<std::int64_t>(latest.size());
  return result;
}

}  // namespace tool::monitor
