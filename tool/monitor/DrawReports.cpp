// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "tool/monitor/Draw.h"
#include "tool/monitor/Glyphs.h"

namespace tool::monitor {

namespace {

constexpr int kTimeWidth = 10;

/// "+8.02 ms", since the report before.
std::string distanceText(const RawReport* before, const RawReport& report, bool hasUnicode) {
  return before == nullptr ? "" : "+" + timeText(report.time - before->time, hasUnicode);
}

/// Thousands a second, so without the work that any text takes.
void drawByte(std::uint8_t byte, int row, int column, Style style, Screen& screen) {
  constexpr std::u32string_view kDigits = U"0123456789abcdef";
  screen.put(row, column, kDigits[byte >> 4U], style);
  screen.put(row, column + 1, kDigits[byte & 0xfU], style);
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
    drawByte(report.bytes[i], row, column + 1, isChanged ? Style{Colour::Warning, true} : Style{},
             screen);
    column += 3;
  }
}

}  // namespace

void drawReports(const Shown& shown, const Rect& rect, Screen& screen) {
  const bool hasUnicode = screen.look().hasUnicode;
  drawTitle(screen, rect.row, rect.column, rect.columns, "Reports, the latest first");
  const auto& latest = shown.reports;
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
