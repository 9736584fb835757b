// SPDX-License-Identifier: Apache-2.0

// A table for the terminal: columns as wide as their widest cell.
//
// Threading: one thread.
// Order: rows as added.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

/// How many characters the text has, which is UTF-8.
[[nodiscard]] std::size_t characterCount(std::string_view text);
/// With blanks at its end, so that it has at least so many characters.
[[nodiscard]] std::string padded(std::string text, std::size_t characters);

class Table {
 public:
  using Row = std::vector<std::string>;  ///< printable text, a cell for each column

  explicit Table(Row titles) { add(std::move(titles)); }
  /// `note`, if any, is an indented line below the row.
  void add(Row row, std::string note = {}) { lines_.push_back({std::move(row), std::move(note)}); }
  [[nodiscard]] std::string text() const;

 private:
  struct Line {
    Row cells;
    std::string note;
  };
  [[nodiscard]] std::vector<std::size_t> widths() const;

  std::vector<Line> lines_;
};

}  // namespace tool
