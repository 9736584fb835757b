// SPDX-License-Identifier: Apache-2.0

#include "tool/measuring/Durations.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace tool {

void Durations::take(Time duration) {
  ++count_;
  total_ += duration;
  longest_ = std::max(longest_, duration);
  const auto length = static_cast<std::uint64_t>(duration.count());
  Bucket& bucket = buckets_[indexOf(length)];
  ++bucket.count;
  bucket.total += length;
}

/// The first 64 indexes are single microseconds, the next 64 share each doubling from there on.
std::size_t Durations::indexOf(std::uint64_t microseconds) {
  if (microseconds < kSteps) return microseconds;
  const auto doubling = static_cast<std::size_t>(std::bit_width(microseconds / kSteps));
  const std::size_t index = doubling * kSteps + (microseconds >> (doubling - 1)) - kSteps;
  return std::min(index, kSteps * kDoublings - 1);
}

std::uint64_t Durations::firstOf(std::size_t index) {
  if (index < kSteps) return index;
  const std::size_t doubling = index / kSteps;
  return (index % kSteps + kSteps) << (doubling - 1);
}

Durations::Time Durations::percentile(double part) const {
  const auto wanted = static_cast<std::uint64_t>(std::ceil(part * static_cast<double>(count_)));
  std::uint64_t seen = 0;
  for (const Bucket& bucket : buckets_) {
    seen += bucket.count;
    if (bucket.count == 0 || seen < wanted) continue;
    return Time(static_cast<std::int64_t>(bucket.total / bucket.count));
  }
  return longest_;
}

std::vector<Durations::Bar> Durations::histogram() const {
  std::vector<Bar> bars;
  std::size_t at = 0;
  for (std::uint64_t from = 0, to = 1; at < buckets_.size(); from = to, to *= 2) {
    Bar bar{Time(static_cast<std::int64_t>(from)), Time(static_cast<std::int64_t>(to)), 0};
    for (; at < buckets_.size() && firstOf(at) < to; ++at) bar.count += buckets_[at].count;
    if (bar.count != 0 || !bars.empty()) bars.push_back(bar);
  }
  while (!bars.empty() && bars.back().count == 0) bars.pop_back();
  return bars;
}

}  // namespace tool
