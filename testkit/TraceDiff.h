// Comparing two traces so that a person sees at once where they part.
//
//   EXPECT_EQ(testkit::traceDiff(expected, platform.trace().take()), "");
//
// Threading, Ownership, Errors, Order: pure functions.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace testkit {

using Lines = std::vector<std::string>;

/// A piece of a trace: a line or several.
struct Piece {
  Lines lines;
  Piece(const char* line) : lines{line} {}
  Piece(std::string line) : lines{std::move(line)} {}
  Piece(Lines several) : lines(std::move(several)) {}
};
/// One trace out of pieces.
[[nodiscard]] Lines sequence(std::initializer_list<Piece> pieces);

/// Empty where the traces are the same. Otherwise the lines of both, in order: "  " where they
/// agree, "- " expected but missing, "+ " there but not expected.
[[nodiscard]] std::string traceDiff(const Lines& expected, const Lines& actual);

}  // namespace testkit
