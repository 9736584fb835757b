// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/Text.h"

#include <array>
#include <charconv>
#include <cmath>

#include "platform/foundation/Format.h"

namespace platform {
namespace {

constexpr char32_t kFirstSupplementary = 0x10000;

bool isHighSurrogate(unsigned unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(unsigned unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

bool isBareCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

template <class Unit>
void forEachUTF16Unit(char32_t codePoint, Unit&& unit) {
  if (codePoint < kFirstSupplementary) {
    unit(static_cast<unsigned>(codePoint));
    return;
  }
  const auto rest = static_cast<unsigned>(codePoint - kFirstSupplementary);
  unit(0xD800U + (rest >> 10));
  unit(0xDC00U + (rest & 0x3FFU));
}

void appendEscapedASCII(std::string& text, char c) {
  static constexpr std::string_view controls = "\a\b\t\n\v\f\r";
  static constexpr std::string_view names = "abtnvfr";
  if (c == '"' || c == '\\') {
    text += {'\\', c};
  } else if (const auto at = controls.find(c); at != std::string_view::npos) {
    text += {'\\', names[at]};
  } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
    text += stringWithFormat("\\%03o", c);
  } else {
    text += c;
  }
}

void appendEscapedUnit(std::string& text, unsigned unit) {
  text += stringWithFormat("\\U%04x", unit);
}

}  // namespace

char32_t nextCodePoint(std::string_view text, std::size_t& position) {
  const auto byte = [&] { return static_cast<unsigned char>(text[position++]); };
  const char32_t lead = byte();
  if (lead < 0x80) return lead;
  const int continuations = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  char32_t codePoint = lead & (0x3FU >> continuations);
  for (int i = 0; i < continuations; ++i) codePoint = (codePoint << 6) | (byte() & 0x3FU);
  return codePoint;
}

void appendUTF8(std::string& text, char32_t codePoint) {
  const auto put = [&](char32_t byte) { text += static_cast<char>(byte); };
  if (codePoint < 0x80) return put(codePoint);
  if (codePoint < 0x800) {
    put(0xC0 | (codePoint >> 6));
  } else if (codePoint < kFirstSupplementary) {
    put(0xE0 | (codePoint >> 12));
    put(0x80 | ((codePoint >> 6) & 0x3F));
  } else {
    put(0xF0 | (codePoint >> 18));
    put(0x80 | ((codePoint >> 12) & 0x3F));
    put(0x80 | ((codePoint >> 6) & 0x3F));
  }
  put(0x80 | (codePoint & 0x3F));
}

std::optional<std::string> UTF8FromUTF16BigEndian(std::string_view bytes) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  const auto unitAt = [&](std::size_t i) {
    return static_cast<unsigned>(static_cast<unsigned char>(bytes[i])) << 8 |
           static_cast<unsigned char>(bytes[i + 1]);
  };
  std::string text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    const unsigned unit = unitAt(i);
    if (isLowSurrogate(unit)) return std::nullopt;
    if (!isHighSurrogate(unit)) {
      appendUTF8(text, unit);
      continue;
    }
    i += 2;
    if (i >= bytes.size() || !isLowSurrogate(unitAt(i))) return std::nullopt;
    appendUTF8(text, kFirstSupplementary + ((unit - 0xD800U) << 10) + (unitAt(i) - 0xDC00U));
  }
  return text;
}

std::string UTF16BigEndianFromUTF8(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() * 2);
  for (std::size_t position = 0; position < text.size();) {
    forEachUTF16Unit(nextCodePoint(text, position), [&](unsigned unit) {
      bytes += static_cast<char>(unit >> 8);
      bytes += static_cast<char>(unit & 0xFFU);
    });
  }
  return bytes;
}

std::string quotedWhereNeeded(std::string_view text) {
  bool bare = !text.empty();
  for (const char c : text) bare = bare && isBareCharacter(c);
  if (bare) return std::string(text);
  std::string quoted = "\"";
  for (std::size_t position = 0; position < text.size();) {
    const char32_t codePoint = nextCodePoint(text, position);
    if (codePoint < 0x80) {
      appendEscapedASCII(quoted, static_cast<char>(codePoint));
    } else {
      forEachUTF16Unit(codePoint, [&](unsigned unit) { appendEscapedUnit(quoted, unit); });
    }
  }
  return quoted + '"';
}

std::string shortestText(double value) {
  // No exponent for magnitudes that "%.17g" would write without one.
  const double magnitude = std::fabs(value);
  const bool plain = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e17);
  std::array<char, 64> text{};
  const auto format = plain ? std::chars_format::fixed : std::chars_format::scientific;
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value, format);
  return error == std::errc() ? std::string(text.data(), end) : std::string();
}

}  // namespace platform
