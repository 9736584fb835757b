// SPDX-License-Identifier: Apache-2.0

// Whether a line starts a log entry: an incremental search for kHeaderPattern.
//
// Takes linear time and constant memory for any line, since the pattern matches a line in only one
// way. Characters are code points. Letters match case-insensitively, which makes U+017F (long s)
// equal to "s" and U+212A (Kelvin sign) equal to "k". A blank (\s) is any character with Unicode's
// White_Space property.
//
// Threading: a value of one thread.
// Ownership: keeps no bytes.
// Errors: never fails. The line must be valid UTF-8, but may end inside a character.
// Order: each call gets the line from its beginning, at least as much of it as the call before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace diagnostics {

/// How the logging system starts an entry: date, time, host, process, process ID in brackets,
/// further text from the process, a colon. HeaderSearch.cpp implements it one set at a time.
inline constexpr std::string_view kHeaderPattern =
    R"(^([A-Za-z]{3}(\s){1,2}([0-9]{1,2})(\s){1})([0-9]{1,2})\:([0-9]{1,2})\:([0-9]{1,2})(\s){1})"
    R"((\S){1,}(\s){1}([A-Za-z\.\-\_]){1,}\[[0-9]{1,}\]([\sA-Za-z0-9\(\)\[\]\.]{0,})\:)";

class HeaderSearch {
 public:
  enum class Answer : std::uint8_t {
    found,     ///< whatever follows
    notFound,  ///< whatever follows
    open,      ///< the header matches so far but is incomplete; at the end of the line: not found
  };

  /// Continues where the last call stopped. `line` is the line so far.
  Answer advance(std::string_view line);

 private:
  std::size_t offset_ = 0;   ///< how much of the line has been consumed
  std::size_t part_ = 0;     ///< of the pattern
  std::uint64_t state_ = 0;  ///< of the part's automaton
};

/// Whether the first line of the text, up to its line feed or the end, starts an entry.
[[nodiscard]] bool beginsWithHeader(std::string_view text);

}  // namespace diagnostics
