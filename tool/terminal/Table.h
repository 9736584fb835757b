// SPDX-License-Identifier: Apache-2.0

// A table for the terminal: columns as wide as their widest cell.
//
// Threading: one thread.
// Order: rows as added.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace tool {

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
