// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <string>

#include "tool/monitor/Draw.h"
#include "tool/monitor/Glyphs.h"

namespace tool::monitor {

namespace {

struct Dot {
  int x = 0;
  int y = 0;
};

/// Where the extent's points are among the canvas's dots.
class Projection {
 public:
  Projection(const Path::Extent& extent, const DotCanvas& canvas)
      : extent_(extent), width_(canvas.width() - 1), height_(canvas.height() - 1) {}

  [[nodiscard]] Dot of(const PathPoint& point) const {
    return {scaled(point.x, extent_.fromX, extent_.toX, width_),
            scaled(point.y, extent_.fromY, extent_.toY, height_)};
  }

 private:
  static int scaled(double value, double from, double to, int length) {
    if (to <= from) return 0;
    const double part = (value - from) / (to - from);
    return static_cast<int>(std::lround(std::clamp(part, 0.0, 1.0) * length));
  }

  Path::Extent extent_;
  int width_;
  int height_;
};

int levelOf(const Path& path, const PathPoint& point) {
  constexpr int kLevelWithoutPressure = 3;
  if (!path.hasPressure()) return kLevelWithoutPressure;
  return 1 + static_cast<int>(point.pressure * 3.999);
}

void drawOne(const Path& path, Time now, const Rect& rect, Screen& screen) {
  DotCanvas canvas(rect.rows, rect.columns);
  const Projection projection(path.extent(now), canvas);
  const PathPoint* before = nullptr;
  Dot last;
  for (const PathPoint& point : path.points()) {
    if (point.time + Path::kKept < now) continue;
    const Dot dot = projection.of(point);
    const bool goesOn = before != nullptr && point.time - before->time < Path::kGap;
    const Dot from = goesOn ? last : dot;
    canvas.line(from.x, from.y, dot.x, dot.y, levelOf(path, point));
    before = &point;
    last = dot;
  }
  canvas.drawOn(screen, rect.row, rect.column);
  if (before == nullptr) return;
  screen.put(rect.row + last.y / 4, rect.column + last.x / 2,
             screen.look().hasUnicode ? U'●' : U'O', {Colour::Accent, true});
}

}  // namespace

void drawPath(const Shown& shown, const Rect& rect, Screen& screen) {
  if (shown.model == nullptr || shown.model->paths().empty()) {
    drawTitle(screen, rect.row, rect.column, rect.columns, "Path");
    screen.write(rect.row + 1, rect.column + 1, rect.columns - 2, "the device has no two axes",
                 {Colour::Quiet});
    return;
  }
  const auto& paths = shown.model->paths();
  constexpr int kLeastWidth = 20;
  const int most = std::max(rect.columns / kLeastWidth, 1);
  const int count = std::min(static_cast<int>(paths.size()), most);
  const int width = rect.columns / count;
  for (int i = 0; i < count; ++i) {
    const Path& path = paths[static_cast<std::size_t>(i)];
    const int column = rect.column + i * width;
    drawTitle(screen, rect.row, column, width,
              "Path of " + path.name() + (path.hasPressure() ? ", brighter with pressure" : ""));
    drawOne(path, shown.now, {rect.row + 1, column, rect.rows - 1, width - (i + 1 < count)},
            screen);
  }
}

}  // namespace tool::monitor
