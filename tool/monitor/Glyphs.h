// SPDX-License-Identifier: Apache-2.0

// Bars, sparklines and dots, of Unicode's characters or of ASCII's.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <vector>

#include "tool/monitor/Screen.h"

namespace tool::monitor {

/// A bar from the part `from` to the part `to` (0 to 1) of the cells of one row.
void drawBar(Screen& screen, int row, int column, int width, double from, double to, Style style);
/// One column of a sparkline, for a part of 0 to 1.
[[nodiscard]] char32_t sparkGlyph(double part, bool hasUnicode);
/// A line across; `title`, if any, is in it.
void drawTitle(Screen& screen, int row, int column, int width, std::string_view title,
               Style style = {Colour::Quiet});

/// Dots two to a column and four to a row, each with a brightness of 1 to 4. Without Unicode, a
/// character for each cell.
class DotCanvas {
 public:
  DotCanvas(int rows, int columns);

  [[nodiscard]] int height() const { return rows_ * 4; }
  [[nodiscard]] int width() const { return columns_ * 2; }
  void dot(int x, int y, int level);
  /// All dots of a straight line, including its ends.
  void line(int fromX, int fromY, int toX, int toY, int level);
  void drawOn(Screen& screen, int row, int column) const;

 private:
  struct Dots {
    std::uint8_t pattern = 0;  // of the Unicode character, and also its low byte
    std::uint8_t level = 0;    // the brightest
  };
  int rows_;
  int columns_;
  std::vector<Dots> cells_;
};

}  // namespace tool::monitor
