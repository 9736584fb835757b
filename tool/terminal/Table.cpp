// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/Table.h"

#include <algorithm>

namespace tool {

namespace {

constexpr std::size_t kGap = 2;

}  // namespace

std::size_t characterCount(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U;
  }));
}

std::string padded(std::string text, std::size_t characters) {
  const std::size_t count = characterCount(text);
  if (count < characters) text.append(characters - count, ' ');
  return text;
}

std::vector<std::size_t> Table::widths() const {
  std::vector<std::size_t> widths;
  for (const Line& line : lines_) {
    widths.resize(std::max(widths.size(), line.cells.size()));
    for (std::size_t i = 0; i < line.cells.size(); ++i)
      widths[i] = std::max(widths[i], characterCount(line.cells[i]));
  }
  return widths;
}

std::string Table::text() const {
  const auto columns = widths();
  std::string text;
  for (const Line& line : lines_) {
    for (std::size_t i = 0; i < line.cells.size(); ++i) {
      const bool isLast = i + 1 == line.cells.size();
      text += isLast ? line.cells[i] : padded(line.cells[i], columns[i] + kGap);
    }
    text += "\n";
    if (!line.note.empty()) text += std::string(kGap, ' ') + line.note + "\n";
  }
  return text;
}

}  // namespace tool
