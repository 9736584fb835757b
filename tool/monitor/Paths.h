// SPDX-License-Identifier: Apache-2.0

// Where two axes that belong together have been in the last seconds.
//
// Threading: one thread at a time.
// Order: as Pace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "tool/monitor/Tracks.h"

namespace tool::monitor {

struct PathPoint {
  Time time{};
  double x = 0;
  double y = 0;
  double pressure = 0;  ///< 0 to 1
  friend bool operator==(const PathPoint&, const PathPoint&) = default;
};

class Path {
 public:
  /// How long a point is kept.
  static constexpr Time kKept = std::chrono::seconds(4);
  /// A line is not continued after so long without a value.
  static constexpr Time kGap = std::chrono::milliseconds(250);

  Path(const Track& x, const Track& y, const Track* pressure);

  void take(Time time, std::span<const platform::HIDElementValueRecord> values);

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] const std::deque<PathPoint>& points() const { return points_; }
  [[nodiscard]] bool hasPressure() const { return pressure_.has_value(); }
  struct Extent {
    double fromX = 0;
    double toX = 1;
    double fromY = 0;
    double toY = 1;
  };
  /// What a picture should show: the range of absolute axes, or wherever relative ones have been.
  [[nodiscard]] Extent extent(Time now) const;

 private:
  struct Axis {
    std::uint32_t cookie = 0;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    double now = 0;
  };
  static Axis axisOf(const Track& track);
  void keep(Time time);

  std::string name_;
  bool isRelative_ = false;
  Axis x_;
  Axis y_;
  std::optional<Axis> pressure_;
  std::deque<PathPoint> points_;
};

/// X and Y, and then the other pairs that are two hands' or two thumbs' work.
[[nodiscard]] std::vector<Path> pathsOf(const std::vector<Track>& tracks);

}  // namespace tool::monitor
