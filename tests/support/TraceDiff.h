// Comparing two traces so that a person sees at once where they part.
//
// Threading, Ownership, Errors, Order: pure functions on the test's thread.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace test {

using Lines = std::vector<std::string>;

/// One trace out of pieces, each a line or several.
struct Piece {
  Lines lines;
  Piece(const char* line) : lines{line} {}
  Piece(std::string line) : lines{std::move(line)} {}
  Piece(Lines several) : lines(std::move(several)) {}
};
inline Lines sequence(std::initializer_list<Piece> pieces) {
  Lines all;
  for (const Piece& piece : pieces) all.insert(all.end(), piece.lines.begin(), piece.lines.end());
  return all;
}

/// The lines of both, in order: "  " where they agree, "- " expected but missing, "+ " there but
/// not expected.
inline std::string traceDiff(const Lines& expected, const Lines& actual) {
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

inline ::testing::AssertionResult sameTrace(const Lines& expected, const Lines& actual) {
  if (expected == actual) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the traces differ (- expected, + actual):\n"
                                       << traceDiff(expected, actual);
}

}  // namespace test
