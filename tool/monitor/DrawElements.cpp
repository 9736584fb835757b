// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <string>

#include "tool/monitor/Draw.h"
#include "tool/monitor/Glyphs.h"

namespace tool::monitor {

namespace {

/// The columns of the table, next to each other.
struct Widths {
  int name = 0;
  int value = 0;
  int range = 0;  // 0: there is no room for it
  int bar = 0;
  int spark = 0;
};

Widths widthsFor(const std::vector<Track>& tracks, int columns) {
  int longest = 8;
  for (const Track& track : tracks) longest = std::max(longest, columnsOf(track.name));
  Widths widths;
  widths.name = std::min(longest, std::min(24, columns / 4));
  widths.value = std::clamp(columns / 6, 7, 12);
  widths.range = columns >= 90 ? 18 : 0;
  const int rest = columns - widths.name - widths.value - widths.range - 5;
  widths.bar = std::clamp(rest / 2, 4, 60);
  widths.spark = std::clamp(rest - widths.bar, 0, 100);
  return widths;
}

double fullScale(const Track& track, const std::vector<std::optional<std::int64_t>>& values) {
  double most = 1;
  for (const auto& each : values)
    most = std::max(most, std::abs(static_cast<double>(each.value_or(0))));
  return track.kind == Track::Kind::Relative ? most : 1;
}

double sparkPart(const Track& track, std::int64_t value, double scale) {
  if (track.kind == Track::Kind::Relative) return std::abs(static_cast<double>(value)) / scale;
  if (track.kind == Track::Kind::Slot || track.kind == Track::Kind::Switch) return value != 0;
  return track.partOf(value);
}

void drawSpark(const Track& track, Time now, int row, int column, int width, Screen& screen) {
  const auto values = track.history.until(now, static_cast<std::size_t>(std::max(width, 0)));
  const double scale = fullScale(track, values);
  for (const auto& each : values) {
    if (each)
      screen.put(row, column, sparkGlyph(sparkPart(track, *each, scale), screen.look().hasUnicode),
                 {Colour::Good});
    ++column;
  }
}

void drawRangeBar(const Track& track, int row, int column, int width, Screen& screen) {
  const bool hasNumber = track.kind == Track::Kind::Absolute ||
                         track.kind == Track::Kind::Relative || track.kind == Track::Kind::Switch;
  const bool isInside = track.value >= track.minimum && track.value <= track.maximum;
  const bool isNone = track.hasNullState && !isInside;
  const double zero = track.minimum < 0 && track.maximum > 0 ? track.partOf(0) : 0;
  if (track.kind == Track::Kind::Bytes) return;
  double to = hasNumber ? track.partOf(track.value) : static_cast<double>(track.selected.id != 0);
  if (!track.hasValue || isNone) to = zero;
  drawBar(screen, row, column, width, zero, to, {Colour::Accent});
}

std::string rangeText(const Track& track) {
  if (track.kind == Track::Kind::Slot || track.kind == Track::Kind::Bytes) return {};
  return std::to_string(track.minimum) + " to " + std::to_string(track.maximum);
}

}  // namespace

void drawElements(const Shown& shown, const Rect& rect, Screen& screen) {
  const std::size_t count = shown.model == nullptr ? 0 : shown.model->tracks().size();
  const auto room = static_cast<std::size_t>(rect.rows - 1);
  const std::size_t first = std::min(shown.scroll, count - std::min(count, room));
  std::string title = "Elements";
  if (count > room)
    title += " " + std::to_string(first + 1) + " to " + std::to_string(first + room) + " of " +
             std::to_string(count);
  drawTitle(screen, rect.row, rect.column, rect.columns, title);
  if (count == 0) return;
  const auto& tracks = shown.model->tracks();
  const Widths widths = widthsFor(tracks, rect.columns);
  for (std::size_t i = first; i < std::min(first + room, count); ++i) {
    const Track& track = tracks[i];
    const int row = rect.row + 1 + static_cast<int>(i - first);
    int column = rect.column + 1;
    screen.write(row, column, widths.name, track.name);
    column += widths.name + 1;
    screen.writeRight(row, column, widths.value, track.valueText(), {Colour::Usual, true});
    column += widths.value + 1;
    screen.write(row, column, widths.range, rangeText(track), {Colour::Quiet});
    column += widths.range;
    drawRangeBar(track, row, column, widths.bar, screen);
    drawSpark(track, shown.now, row, column + widths.bar + 1, widths.spark, screen);
  }
}

}  // namespace tool::monitor
