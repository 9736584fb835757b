// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <string>

#include "platform/foundation/Format.h"
#include "tool/monitor/Draw.h"
#include "tool/monitor/Glyphs.h"

namespace tool::monitor {

namespace {

constexpr int kTimeWidth = 10;

/// "+8.02 ms", since the report before.
std::string distanceText(const RawReport* before, const RawReport& report, bool hasUnicode) {
  return before == nullptr ? "" : "+" + timeText(report.time - before->time, hasUnicode);
}

void drawReport(const RawReport& report, int row, int column, int end, Screen& screen) {
  const bool hasUnicode = screen.look().hasUnicode;
  for (std::size_t i = 0; i < report.bytes.size(); ++i) {
    const bool isLast = i + 1 == report.length;
    if (column + (isLast ? 3 : 4) > end) {
      screen.put(row, column, hasUnicode ? U'…' : U'~', {Colour::Quiet});
      return;
    }
    const bool isChanged = report.isChanged[i];
    if (isChanged) screen.put(row, column, hasUnicode ? U'▸' : U'>', {Colour::Warning});
    screen.write(row, column + 1, 2, platform::stringWithFormat("%02x", unsigned{report.bytes[i]}),
                 isChanged ? Style{Colour::Warning, true} : Style{});
    column += 3;
  }
}

}  // namespace

void drawReports(const Shown& shown, const Rect& rect, Screen& screen) {
  const bool hasUnicode = screen.look().hasUnicode;
  drawTitle(screen, rect.row, rect.column, rect.columns, "Reports, the latest first");
  if (shown.model == nullptr) return;
  const auto& latest = shown.model->reports().latest();
  const int room = std::min(rect.rows - 1, static_cast<int>(latest.size()));
  for (int i = 0; i < room; ++i) {
    const auto at = latest.size() - 1 - static_cast<std::size_t>(i);
    const RawReport* const before = at == 0 ? nullptr : &latest[at - 1];
    const int row = rect.row + 1 + i;
    screen.writeRight(row, rect.column, kTimeWidth, distanceText(before, latest[at], hasUnicode),
                      {Colour::Quiet});
    drawReport(latest[at], row, rect.column + kTimeWidth + 1, rect.column + rect.columns, screen);
  }
}

}  // namespace tool::monitor
