// Whether a line begins an entry: the search for headerPattern in it, which can be carried on as
// the line arrives.
//
// Threading: a value of one thread. Ownership: keeps no bytes.
// Errors: none; the line must be valid UTF-8, but may end within a character.
// Order: each call sees the line from its beginning, at least as much of it as the one before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace diagnostics {

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
  std::size_t offset_ = 0;  ///< how much of the line has been taken
  std::size_t step_ = 0;    ///< of the pattern
  std::size_t taken_ = 0;   ///< characters for that step
};

/// Whether the first line of the text, up to its line feed or whole, begins an entry.
[[nodiscard]] bool beginsWithHeader(std::string_view text);

}  // namespace diagnostics
