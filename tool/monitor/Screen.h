// SPDX-License-Identifier: Apache-2.0

// A screen as a grid of cells: what is drawn, before anything knows on which terminal.
//
// Everything that a device sends reaches a screen through write(), which makes it printable first.
//
// Threading: one thread at a time.
// Ownership: a value.
// Errors: none; what lies outside is not drawn.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool::monitor {

/// What a colour is for. The terminal decides which one it is.
enum class Colour : std::uint8_t {
  Usual,
  Quiet,  ///< titles, frames, what does not change
  Good,
  Warning,
  Bad,
  Accent,
  Level1,  ///< the darkest of four steps
  Level2,
  Level3,
  Level4,
};

struct Style {
  Colour colour = Colour::Usual;
  bool isBold = false;
  bool isDim = false;
  bool isReverse = false;
  friend bool operator==(const Style&, const Style&) = default;
};

/// What a screen may use.
struct Look {
  bool hasUnicode = true;  ///< otherwise ASCII alone
  bool hasColours = true;  ///< otherwise colours become bold and dim
};

struct Cell {
  /// 0: the right half of the wide character in the cell before.
  char32_t character = U' ';
  Style style;
  friend bool operator==(const Cell&, const Cell&) = default;
};

struct Rect {
  int row = 0;
  int column = 0;
  int rows = 0;
  int columns = 0;
  friend bool operator==(const Rect&, const Rect&) = default;
};

class Screen {
 public:
  Screen(int rows, int columns, Look look);

  [[nodiscard]] int rows() const { return rows_; }
  [[nodiscard]] int columns() const { return columns_; }
  [[nodiscard]] Look look() const { return look_; }
  [[nodiscard]] const Cell& at(int row, int column) const;
  /// The cells of a row that there is.
  [[nodiscard]] std::span<const Cell> row(int row) const;

  /// A character of one column. Without Unicode, another one than ASCII becomes "?".
  void put(int row, int column, char32_t character, Style style = {});
  /// Text in at most `width` columns; what does not fit ends in "…". Returns the columns used.
  int write(int row, int column, int width, std::string_view text, Style style = {});
  /// The same, ending at the last of the `width` columns.
  void writeRight(int row, int column, int width, std::string_view text, Style style = {});
  /// The style of cells whose characters stay.
  void restyle(const Rect& rect, Style style);

  /// The characters, a line for each row, without the blanks at its end.
  [[nodiscard]] std::string text() const;

 private:
  [[nodiscard]] Style possible(Style style) const;
  [[nodiscard]] std::size_t indexOf(int row, int column) const;
  [[nodiscard]] bool isInside(int row, int column) const;

  int rows_;
  int columns_;
  Look look_;
  std::vector<Cell> cells_;
};

/// How many columns a terminal uses for the character: 0, 1 or 2.
[[nodiscard]] int columnsOf(char32_t character);
/// Of a text that is printable.
[[nodiscard]] int columnsOf(std::string_view text);
void appendUtf8(std::string& out, char32_t character);

}  // namespace tool::monitor
