// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Paths.h"

#include <algorithm>
#include <array>

#include "input/UsageNames.h"

namespace tool::monitor {

namespace {

constexpr router::Usage kX{wlhid::kGenericDesktopPage, 0x30};
constexpr router::Usage kY{wlhid::kGenericDesktopPage, 0x31};
constexpr router::Usage kZ{wlhid::kGenericDesktopPage, 0x32};
constexpr router::Usage kRx{wlhid::kGenericDesktopPage, 0x33};
constexpr router::Usage kRy{wlhid::kGenericDesktopPage, 0x34};
constexpr router::Usage kRz{wlhid::kGenericDesktopPage, 0x35};
constexpr router::Usage kTipPressure{wlhid::kDigitizerPage, 0x30};

constexpr std::size_t kMostPaths = 4;

std::vector<const Track*> tracksWith(const std::vector<Track>& tracks, const router::Usage& usage) {
  std::vector<const Track*> found;
  for (const Track& track : tracks) {
    const bool isAxis = track.kind == Track::Kind::Absolute || track.kind == Track::Kind::Relative;
    if (isAxis && track.usage == usage) found.push_back(&track);
  }
  return found;
}

const Track* pressureFor(const std::vector<Track>& tracks, const Track& x, std::size_t number) {
  auto found = tracksWith(tracks, kTipPressure);
  std::erase_if(found, [&](const Track* each) { return each->reportID != x.reportID; });
  return number < found.size() ? found[number] : nullptr;
}

}  // namespace

Path::Axis Path::axisOf(const Track& track) {
  return {track.cookie, track.minimum, track.maximum, static_cast<double>(track.minimum)};
}

Path::Path(const Track& x, const Track& y, const Track* pressure)
    : name_(x.name + ", " + y.name),
      isRelative_(x.kind == Track::Kind::Relative),
      x_(axisOf(x)),
      y_(axisOf(y)) {
  if (pressure != nullptr) pressure_ = axisOf(*pressure);
  if (isRelative_) x_.now = y_.now = 0;
}

void Path::take(Time time, std::span<const platform::HIDElementValueRecord> values) {
  bool hasMoved = false;
  const auto takeInto = [&](Axis& axis, const platform::HIDElementValueRecord& value) {
    if (value.cookie != axis.cookie) return;
    const auto number = static_cast<double>(value.integerValue);
    axis.now = isRelative_ ? axis.now + number : number;
    hasMoved = true;
  };
  for (const auto& value : values) {
    takeInto(x_, value);
    takeInto(y_, value);
    if (pressure_ && value.cookie == pressure_->cookie)
      pressure_->now = static_cast<double>(value.integerValue);
  }
  if (hasMoved) keep(time);
}

/// Of points within a millisecond the last one is kept: more would not be seen.
void Path::keep(Time time) {
  while (!points_.empty() && points_.front().time + kKept < time) points_.pop_front();
  PathPoint point{time, x_.now, y_.now, 0};
  if (pressure_ && pressure_->maximum > pressure_->minimum) {
    const auto minimum = static_cast<double>(pressure_->minimum);
    const double range = static_cast<double>(pressure_->maximum) - minimum;
    point.pressure = std::clamp((pressure_->now - minimum) / range, 0.0, 1.0);
  }
  const bool isCrowded =
      points_.size() > 1 && time - points_[points_.size() - 2].time < std::chrono::milliseconds(1);
  if (isCrowded) points_.pop_back();
  points_.push_back(point);
}

Path::Extent Path::extent(Time now) const {
  if (!isRelative_) {
    return {static_cast<double>(x_.minimum), static_cast<double>(x_.maximum),
            static_cast<double>(y_.minimum), static_cast<double>(y_.maximum)};
  }
  constexpr double kLeast = 100;  // so that a twitch does not fill the picture
  Extent extent{x_.now, x_.now, y_.now, y_.now};
  for (const PathPoint& point : points_) {
    if (point.time + kKept < now) continue;
    extent = {std::min(extent.fromX, point.x), std::max(extent.toX, point.x),
              std::min(extent.fromY, point.y), std::max(extent.toY, point.y)};
  }
  const double half = std::max({extent.toX - extent.fromX, extent.toY - extent.fromY, kLeast}) / 2;
  const double x = (extent.fromX + extent.toX) / 2;
  const double y = (extent.fromY + extent.toY) / 2;
  return {x - half, x + half, y - half, y + half};
}

std::vector<Path> pathsOf(const std::vector<Track>& tracks) {
  constexpr std::array kPairs{std::pair{kX, kY}, std::pair{kRx, kRy}, std::pair{kZ, kRz}};
  std::vector<Path> paths;
  for (const auto& [first, second] : kPairs) {
    const auto xs = tracksWith(tracks, first);
    const auto ys = tracksWith(tracks, second);
    for (std::size_t i = 0; i < std::min(xs.size(), ys.size()); ++i) {
      const bool belong = xs[i]->reportID == ys[i]->reportID && xs[i]->kind == ys[i]->kind;
      if (belong && paths.size() < kMostPaths)
        paths.emplace_back(*xs[i], *ys[i], first == kX ? pressureFor(tracks, *xs[i], i) : nullptr);
    }
  }
  return paths;
}

}  // namespace tool::monitor
