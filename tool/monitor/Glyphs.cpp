// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Glyphs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <string>

namespace tool::monitor {

namespace {

constexpr int kSteps = 8;
constexpr std::array<char32_t, kSteps + 1> kRising{U' ', U'▁', U'▂', U'▃', U'▄',
                                                   U'▅', U'▆', U'▇', U'█'};
constexpr std::array<char32_t, kSteps + 1> kRisingPlain{U' ', U'_', U'.', U'-', U'=',
                                                        U'+', U'*', U'#', U'@'};
constexpr std::array<char32_t, kSteps + 1> kLengthening{U' ', U'▏', U'▎', U'▍', U'▌',
                                                        U'▋', U'▊', U'▉', U'█'};
constexpr std::array<char32_t, 5> kDotsPlain{U' ', U'.', U':', U'*', U'@'};
constexpr std::array kLevels{Colour::Usual, Colour::Level1, Colour::Level2, Colour::Level3,
                             Colour::Level4};

int eighths(double part, int width) {
  return static_cast<int>(std::lround(std::clamp(part, 0.0, 1.0) * width * kSteps));
}

}  // namespace

void drawBar(Screen& screen, int row, int column, int width, double from, double to, Style style) {
  const int begin = eighths(std::min(from, to), width);
  const int end = eighths(std::max(from, to), width);
  for (int cell = 0; cell < width; ++cell) {
    const int left = std::clamp(begin - cell * kSteps, 0, kSteps);
    const int right = std::clamp(end - cell * kSteps, 0, kSteps);
    const bool isFilled = right - left >= kSteps / 2;
    // There are no characters that are filled from the right.
    const char32_t fill =
        left == 0 ? kLengthening[static_cast<std::size_t>(right)] : (isFilled ? U'█' : U' ');
    if (!screen.look().hasUnicode) {
      screen.put(row, column + cell, isFilled ? U'#' : U'.', isFilled ? style : Style{});
    } else if (fill == U' ') {
      screen.put(row, column + cell, U'·', {Colour::Quiet});
    } else {
      screen.put(row, column + cell, fill, style);
    }
  }
}

char32_t sparkGlyph(double part, bool hasUnicode) {
  const auto step = static_cast<std::size_t>(
      std::clamp(static_cast<int>(std::lround(part * (kSteps - 1))) + 1, 1, kSteps));
  return hasUnicode ? kRising[step] : kRisingPlain[step];
}

void drawTitle(Screen& screen, int row, int column, int width, std::string_view title,
               Style style) {
  for (int at = 0; at < width; ++at)
    screen.put(row, column + at, screen.look().hasUnicode ? U'─' : U'-', style);
  if (!title.empty() && width > 4)
    screen.write(row, column + 1, width - 2, " " + std::string(title) + " ", style);
}

DotCanvas::DotCanvas(int rows, int columns)
    : rows_(std::max(rows, 0)),
      columns_(std::max(columns, 0)),
      cells_(static_cast<std::size_t>(rows_) * static_cast<std::size_t>(columns_)) {}

void DotCanvas::dot(int x, int y, int level) {
  if (x < 0 || y < 0 || x >= width() || y >= height()) return;
  // The bit of each of the eight dots, by column and row.
  constexpr std::array<std::array<std::uint8_t, 4>, 2> kBits{
      {{0x01, 0x02, 0x04, 0x40}, {0x08, 0x10, 0x20, 0x80}}};
  Dots& cell = cells_[static_cast<std::size_t>(y / 4) * static_cast<std::size_t>(columns_) +
                      static_cast<std::size_t>(x / 2)];
  cell.pattern |= kBits[static_cast<std::size_t>(x % 2)][static_cast<std::size_t>(y % 4)];
  cell.level = static_cast<std::uint8_t>(std::max<int>(cell.level, std::clamp(level, 1, 4)));
}

void DotCanvas::line(int fromX, int fromY, int toX, int toY, int level) {
  const int steps = std::max({std::abs(toX - fromX), std::abs(toY - fromY), 1});
  for (int i = 0; i <= steps; ++i)
    dot(fromX + (toX - fromX) * i / steps, fromY + (toY - fromY) * i / steps, level);
}

void DotCanvas::drawOn(Screen& screen, int row, int column) const {
  constexpr char32_t kNoDots = 0x2800;
  for (int y = 0; y < rows_; ++y) {
    for (int x = 0; x < columns_; ++x) {
      const Dots& cell = cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(columns_) +
                                static_cast<std::size_t>(x)];
      if (cell.pattern == 0) continue;
      const char32_t glyph =
          screen.look().hasUnicode ? kNoDots + cell.pattern : kDotsPlain[cell.level];
      screen.put(row + y, column + x, glyph, {kLevels[cell.level]});
    }
  }
}

}  // namespace tool::monitor
