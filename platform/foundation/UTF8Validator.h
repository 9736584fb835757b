// SPDX-License-Identifier: Apache-2.0

// Checks incrementally whether bytes are well-formed UTF-8: no overlong form, no surrogate, at most
// U+10FFFF, nothing truncated.
//
// Threading: a value of one thread.
// Ownership: keeps no bytes.
// Order: the pieces are one text, in order; a character may be split between pieces.
#pragma once

#include <cstdint>
#include <string_view>

namespace platform {

class UTF8Validator {
 public:
  /// False once the text cannot be UTF-8 whatever follows, and from then on.
  [[nodiscard]] bool accept(std::string_view piece);
  /// Whether the text may end here, that is, not inside a character.
  [[nodiscard]] bool isComplete() const { return missing_ == 0; }

 private:
  [[nodiscard]] bool acceptLeadByte(std::uint8_t byte);

  int missing_ = 0;  ///< bytes that the current character still needs; −1 once the text is refused
  // The bounds of the next one. Only the byte after the first has special bounds: they exclude
  // overlong forms, surrogates and values beyond the last code point.
  std::uint8_t lowest_ = 0;
  std::uint8_t highest_ = 0;
};

}  // namespace platform
