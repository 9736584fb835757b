// SPDX-License-Identifier: Apache-2.0

// Conversions between text encodings, and text as collections' descriptions show it.
//
// Threading: any thread.
// Errors: see each function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The code point at `position` in valid UTF-8; advances `position` past it.
[[nodiscard]] char32_t nextCodePoint(std::string_view validUTF8, std::size_t& position);

/// Appends a code point, which must be at most U+10FFFF and not a surrogate.
void appendUTF8(std::string& text, char32_t codePoint);

/// Null for a lone surrogate or an odd number of bytes.
[[nodiscard]] std::optional<std::string> UTF8FromUTF16BigEndian(std::string_view bytes);
[[nodiscard]] std::string UTF16BigEndianFromUTF8(std::string_view validUTF8);

/// A string as a collection's description shows it: only ASCII letters and digits are left
/// unquoted; anything else is quoted, with each UTF-16 unit of a non-ASCII character as \U and four
/// hexadecimal digits.
[[nodiscard]] std::string quotedWhereNeeded(std::string_view validUTF8);

/// The shortest decimal text that reads back as the same number.
[[nodiscard]] std::string shortestText(double value);

}  // namespace platform
