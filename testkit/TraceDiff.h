// SPDX-License-Identifier: Apache-2.0

// Compares two traces and shows where they differ.
//
//   EXPECT_EQ(testkit::traceDiff(expected, platform.trace().take()), "");
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace testkit {

using Lines = std::vector<std::string>;

/// Part of a trace: one or more lines.
struct Piece {
  Lines lines;
  Piece(const char* line) : lines{line} {}
  Piece(std::string line) : lines{std::move(line)} {}
  Piece(Lines several) : lines(std::move(several)) {}
};
/// Joins pieces into one trace.
[[nodiscard]] Lines sequence(std::initializer_list<Piece> pieces);

/// Empty if the traces are equal. Otherwise the lines of both, in order: "  " in both, "- "
/// expected but missing, "+ " present but not expected.
[[nodiscard]] std::string traceDiff(const Lines& expected, const Lines& actual);

}  // namespace testkit
