// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Screen.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/foundation/PrintableText.h"

namespace tool::monitor {

namespace {

struct CharacterRange {
  char32_t first;
  char32_t last;
};

template <std::size_t N>
bool isIn(char32_t character, const std::array<CharacterRange, N>& ranges) {
  return std::ranges::any_of(ranges, [character](const CharacterRange& range) {
    return character >= range.first && character <= range.last;
  });
}

/// Marks that a terminal draws over the character before them.
constexpr std::array kMarks{CharacterRange{0x300, 0x36f},   CharacterRange{0x483, 0x489},
                            CharacterRange{0x591, 0x5bd},   CharacterRange{0x64b, 0x65f},
                            CharacterRange{0x1ab0, 0x1aff}, CharacterRange{0x1dc0, 0x1dff},
                            CharacterRange{0x20d0, 0x20ff}, CharacterRange{0xfe00, 0xfe0f},
                            CharacterRange{0xfe20, 0xfe2f}, CharacterRange{0xe0100, 0xe01ef}};
constexpr std::array kWide{CharacterRange{0x1100, 0x115f},   CharacterRange{0x2e80, 0x303e},
                           CharacterRange{0x3041, 0xa4cf},   CharacterRange{0xac00, 0xd7a3},
                           CharacterRange{0xf900, 0xfaff},   CharacterRange{0xfe30, 0xfe6f},
                           CharacterRange{0xff00, 0xff60},   CharacterRange{0xffe0, 0xffe6},
                           CharacterRange{0x1f300, 0x1f64f}, CharacterRange{0x1f680, 0x1f6ff},
                           CharacterRange{0x1f900, 0x1f9ff}, CharacterRange{0x20000, 0x3fffd}};

/// The characters of text that is UTF-8.
std::u32string charactersOf(std::string_view text) {
  std::u32string characters;
  for (std::size_t at = 0; at < text.size();) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const std::size_t length = byte < 0x80 ? 1 : byte < 0xe0 ? 2 : byte < 0xf0 ? 3 : 4;
    char32_t character = length == 1 ? byte : byte & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length && at + i < text.size(); ++i)
      character = character << 6U | (static_cast<unsigned char>(text[at + i]) & 0x3fU);
    characters += character;
    at += length;
  }
  return characters;
}

std::u32string printableCharacters(std::string_view text, bool hasUnicode) {
  std::u32string characters = charactersOf(platform::printableLine(text));
  std::erase_if(characters, [](char32_t each) { return columnsOf(each) == 0; });
  if (!hasUnicode)
    std::ranges::replace_if(
        characters, [](char32_t each) { return each > 0x7e; }, U'?');
  return characters;
}

int widthOf(const std::u32string& characters) {
  int width = 0;
  for (const char32_t each : characters) width += columnsOf(each);
  return width;
}

/// At most `width` columns of it.
std::u32string shortened(std::u32string characters, int width, bool hasUnicode) {
  if (widthOf(characters) <= width) return characters;
  while (!characters.empty() && widthOf(characters) > width - 1) characters.pop_back();
  if (width > 0) characters += hasUnicode ? U'…' : U'~';
  return characters;
}

}  // namespace

int columnsOf(char32_t character) {
  if (character < 0x300) return 1;
  if (isIn(character, kMarks)) return 0;
  return isIn(character, kWide) ? 2 : 1;
}

int columnsOf(std::string_view text) {
  return widthOf(charactersOf(text));
}

void appendUtf8(std::string& out, char32_t character) {
  const auto tail = [character](unsigned shift) {
    return static_cast<char>(0x80U | ((character >> shift) & 0x3fU));
  };
  if (character < 0x80) {
    out += static_cast<char>(character);
  } else if (character < 0x800) {
    out += {static_cast<char>(0xc0U | character >> 6U), tail(0)};
  } else if (character < 0x10000) {
    out += {static_cast<char>(0xe0U | character >> 12U), tail(6), tail(0)};
  } else {
    out += {static_cast<char>(0xf0U | character >> 18U), tail(12), tail(6), tail(0)};
  }
}

Screen::Screen(int rows, int columns, Look look)
    : rows_(std::max(rows, 0)),
      columns_(std::max(columns, 0)),
      look_(look),
      cells_(static_cast<std::size_t>(rows_) * static_cast<std::size_t>(columns_)) {}

bool Screen::isInside(int row, int column) const {
  return row >= 0 && row < rows_ && column >= 0 && column < columns_;
}

std::size_t Screen::indexOf(int row, int column) const {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) +
         static_cast<std::size_t>(column);
}

const Cell& Screen::at(int row, int column) const {
  static const Cell kBlank;
  if (!isInside(row, column)) return kBlank;
  return cells_[indexOf(row, column)];
}

std::span<const Cell> Screen::row(int row) const {
  return std::span(cells_).subspan(indexOf(row, 0), static_cast<std::size_t>(columns_));
}

/// Without colours, what is bright or important is bold and what is dark or quiet is dim.
Style Screen::possible(Style style) const {
  if (look_.hasColours) return style;
  const Colour colour = std::exchange(style.colour, Colour::Usual);
  if (colour == Colour::Quiet || colour == Colour::Level1) style.isDim = true;
  if (colour == Colour::Bad || colour == Colour::Accent || colour == Colour::Level3 ||
      colour == Colour::Level4)
    style.isBold = true;
  return style;
}

void Screen::put(int row, int column, char32_t character, Style style) {
  if (!isInside(row, column)) return;
  if (!look_.hasUnicode && character > 0x7e) character = U'?';
  cells_[indexOf(row, column)] = {character, possible(style)};
}

int Screen::write(int row, int column, int width, std::string_view text, Style style) {
  width = std::min(width, columns_ - column);
  int used = 0;
  for (const char32_t each :
       shortened(printableCharacters(text, look_.hasUnicode), width, look_.hasUnicode)) {
    put(row, column + used, each, style);
    if (columnsOf(each) == 2) put(row, column + used + 1, 0, style);
    used += columnsOf(each);
  }
  return used;
}

void Screen::writeRight(int row, int column, int width, std::string_view text, Style style) {
  const int length = widthOf(printableCharacters(text, look_.hasUnicode));
  write(row, column + std::max(width - length, 0), width, text, style);
}

void Screen::restyle(const Rect& rect, Style style) {
  for (int row = rect.row; row < rect.row + rect.rows; ++row) {
    for (int column = rect.column; column < rect.column + rect.columns; ++column) {
      if (isInside(row, column)) put(row, column, at(row, column).character, style);
    }
  }
}

std::string Screen::text() const {
  std::string text;
  for (int row = 0; row < rows_; ++row) {
    std::string line;
    for (int column = 0; column < columns_; ++column) {
      if (at(row, column).character != 0) appendUtf8(line, at(row, column).character);
    }
    line.resize(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace tool::monitor
