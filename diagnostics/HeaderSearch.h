// Whether a line begins an entry: the search for headerPattern in it, which can be carried on as
// the line arrives.
//
// Linear in time for any line and without a stack, since there is one way only to read a line.
// Characters are code points. Letters match in both cases; of the characters outside ASCII that
// makes U+017F (long s) and U+212A (Kelvin sign) equal to "s" and "k". A blank (\s) is what Unicode
// calls White_Space.
//
// Threading: a value of one thread. Ownership: keeps no bytes.
// Errors: none; the line must be valid UTF-8, but may end within a character.
// Order: each call sees the line from its beginning, at least as much of it as the one before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace diagnostics {

/// As the logging system writes an entry: date, time, host, process, process ID in brackets, what
/// else the process says of itself, a colon. HeaderSearch.cpp has it set by set.
inline constexpr std::string_view headerPattern =
    R"(^([A-Za-z]{3}(\s){1,2}([0-9]{1,2})(\s){1})([0-9]{1,2})\:([0-9]{1,2})\:([0-9]{1,2})(\s){1})"
    R"((\S){1,}(\s){1}([A-Za-z\.\-\_]){1,}\[[0-9]{1,}\]([\sA-Za-z0-9\(\)\[\]\.]{0,})\:)";

class HeaderSearch {
 public:
  enum class Answer : std::uint8_t {
    found,     ///< whatever follows
    notFound,  ///< whatever follows
    open,  ///< all characters so far fit, the header is not complete; at the line's end: not found
  };

  /// Goes on where the last call stopped. `line` is everything of the line so far.
  Answer advance(std::string_view line);

 private:
  std::size_t offset_ = 0;   ///< how much of the line has been taken
  std::size_t part_ = 0;     ///< of the pattern
  std::uint64_t state_ = 0;  ///< of the part's automaton
};

/// Whether the first line of the text, up to its line feed or whole, begins an entry.
[[nodiscard]] bool beginsWithHeader(std::string_view text);

}  // namespace diagnostics
