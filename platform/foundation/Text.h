// Text in its encodings, and as descriptions of collections show it.
//
// Threading: pure functions.
// Errors: see each function.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The code point that starts at `position` in valid UTF-8, which is moved behind it.
[[nodiscard]] char32_t nextCodePoint(std::string_view validUTF8, std::size_t& position);

/// Appends a code point of at most U+10FFFF that is no surrogate.
void appendUTF8(std::string& text, char32_t codePoint);

/// Null for a lone surrogate or an odd number of bytes.
[[nodiscard]] std::optional<std::string> UTF8FromUTF16BigEndian(std::string_view bytes);
[[nodiscard]] std::string UTF16BigEndianFromUTF8(std::string_view validUTF8);

/// A string as a collection's description shows it: letters and digits alone stand bare, anything
/// else is quoted, with characters outside ASCII as \U and four hexadecimal digits a UTF-16 unit.
[[nodiscard]] std::string quotedWhereNeeded(std::string_view validUTF8);

/// The shortest decimal text that reads back as the same number.
[[nodiscard]] std::string shortestText(double value);

}  // namespace platform
