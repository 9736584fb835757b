// SPDX-License-Identifier: Apache-2.0

#include "testkit/TraceDiff.h"

#include <algorithm>

namespace testkit {

Lines sequence(std::initializer_list<Piece> pieces) {
  Lines all;
  for (const Piece& piece : pieces) all.insert(all.end(), piece.lines.begin(), piece.lines.end());
  return all;
}

std::string traceDiff(const Lines& expected, const Lines& actual) {
  if (expected == actual) return "";
  const std::size_t rows = expected.size();
  const std::size_t columns = actual.size();
  std::vector<std::vector<std::size_t>> common(rows + 1, std::vector<std::size_t>(columns + 1));
  for (std::size_t r = rows; r-- > 0;) {
    for (std::size_t c = columns; c-- > 0;) {
      common[r][c] = expected[r] == actual[c] ? common[r + 1][c + 1] + 1
                                              : std::max(common[r + 1][c], common[r][c + 1]);
    }
  }
  std::string text;
  std::size_t r = 0;
  std::size_t c = 0;
  while (r < rows || c < columns) {
    if (r < rows && c < columns && expected[r] == actual[c]) {
      text += "  " + expected[r++] + "\n";
      ++c;
    } else if (r < rows && (c == columns || common[r + 1][c] >= common[r][c + 1])) {
      text += "- " + expected[r++] + "\n";
    } else {
      text += "+ " + actual[c++] + "\n";
    }
  }
  return text;
}

}  // namespace testkit
