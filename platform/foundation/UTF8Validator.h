// Whether bytes that come piece by piece are well-formed UTF-8: no overlong form, no surrogate, at
// most U+10FFFF, nothing cut short.
//
// Threading: a value of one thread. Ownership: keeps no bytes. Errors: none; the answer says it.
// Order: the pieces are one text, in order; a character may lie across their borders.
#pragma once

#include <cstdint>
#include <string_view>

namespace platform {

class UTF8Validator {
 public:
  /// False as soon as the text cannot be UTF-8 whatever follows, and from then on.
  [[nodiscard]] bool accept(std::string_view piece);
  /// Whether the text may end here: not within a character.
  [[nodiscard]] bool isComplete() const { return missing_ == 0; }

 private:
  [[nodiscard]] bool acceptLeadByte(std::uint8_t byte);

  int missing_ = 0;  ///< bytes that the open character still needs; −1 once the text was refused
  // What the next of them may be. Only the byte behind the first one has bounds of its own: they
  // keep out overlong forms, surrogates and what lies beyond the last code point.
  std::uint8_t lowest_ = 0;
  std::uint8_t highest_ = 0;
};

}  // namespace platform
