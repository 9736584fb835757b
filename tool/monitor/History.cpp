// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/History.h"

#include <algorithm>

namespace tool::monitor {

namespace {

std::uint64_t distanceFromZero(std::int64_t value) {
  return value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
}

}  // namespace

void History::take(Time time, std::int64_t value) {
  const std::int64_t number = time / std::chrono::milliseconds(100);
  Tenth& tenth = tenths_[static_cast<std::size_t>(number % kTenths)];
  const bool isFirst = tenth.number != number;
  const bool isShown =
      isFirst || merge_ == Merge::Last || (merge_ == Merge::Largest && value > tenth.shown) ||
      (merge_ == Merge::Farthest && distanceFromZero(value) > distanceFromZero(tenth.shown));
  tenth.number = number;
  tenth.last = value;
  if (isShown) tenth.shown = value;
}

std::vector<std::optional<std::int64_t>> History::until(Time now, std::size_t count) const {
  const std::int64_t end = now / std::chrono::milliseconds(100) + 1;
  const std::int64_t begin = end - static_cast<std::int64_t>(count);
  std::optional<std::int64_t> before;
  std::int64_t newest = -1;
  for (const Tenth& tenth : tenths_) {
    if (tenth.number <= newest || tenth.number >= begin) continue;
    newest = tenth.number;
    before = merge_ == Merge::Farthest ? 0 : tenth.last;
  }
  std::vector<std::optional<std::int64_t>> values;
  for (std::int64_t number = begin; number < end; ++number) {
    const Tenth& tenth =
        tenths_[static_cast<std::size_t>(std::max<std::int64_t>(number, 0) % kTenths)];
    const bool isKnown = tenth.number == number;
    if (isKnown) before = merge_ == Merge::Farthest ? 0 : tenth.last;
    values.push_back(isKnown ? tenth.shown : before);
  }
  return values;
}

}  // namespace tool::monitor
