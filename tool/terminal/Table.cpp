// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/Table.h"

#include <algorithm>
#include <string_view>

namespace tool {

namespace {

constexpr std::size_t kGap = 2;

std::size_t characters(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U;
  }));
}

}  // namespace

std::vector<std::size_t> Table::widths() const {
  std::vector<std::size_t> widths;
  for (const Line& line : lines_) {
    widths.resize(std::max(widths.size(), line.cells.size()));
    for (std::size_t i = 0; i < line.cells.size(); ++i)
      widths[i] = std::max(widths[i], characters(line.cells[i]));
  }
  return widths;
}

std::string Table::text() const {
  const auto columns = widths();
  std::string text;
  for (const Line& line : lines_) {
    for (std::size_t i = 0; i < line.cells.size(); ++i) {
      text += line.cells[i];
      const bool isLast = i + 1 == line.cells.size();
      if (!isLast) text.append(columns[i] - characters(line.cells[i]) + kGap, ' ');
    }
    text += "\n";
    if (!line.note.empty()) text += std::string(kGap, ' ') + line.note + "\n";
  }
  return text;
}

}  // namespace tool
