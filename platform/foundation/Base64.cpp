// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/Base64.h"

#include <algorithm>

namespace platform {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextetOf(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  return c == '/' ? 63 : -1;
}

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

std::string base64(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve((bytes.size() / 3 + 1) * 4);
  for (; !bytes.empty(); bytes = bytes.subspan(std::min<std::size_t>(3, bytes.size()))) {
    const std::size_t taken = std::min<std::size_t>(3, bytes.size());
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) group = group << 8 | (i < taken ? bytes[i] : 0U);
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= taken ? kAlphabet[group >> (18 - 6 * i) & 0x3F] : '=';
    }
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> bytesOfBase64(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  std::size_t sextets = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isBlank(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int sextet = sextetOf(c);
    if (sextet < 0 || padding > 0) return std::nullopt;
    bits = bits << 6 | static_cast<std::uint32_t>(sextet);
    if (++sextets % 4 != 0) continue;
    for (const int shift : {16, 8, 0}) bytes.push_back(static_cast<std::uint8_t>(bits >> shift));
  }
  const std::size_t left = sextets % 4;
  if (left == 1 || padding != (4 - left) % 4) return std::nullopt;
  // The bits after the last byte must be zero, so that each byte sequence has only one encoding.
  if (left == 2 && (bits & 0xF) != 0) return std::nullopt;
  if (left == 3 && (bits & 0x3) != 0) return std::nullopt;
  if (left == 2) bytes.push_back(static_cast<std::uint8_t>(bits >> 4));
  if (left == 3) {
    bytes.push_back(static_cast<std::uint8_t>(bits >> 10));
    bytes.push_back(static_cast<std::uint8_t>(bits >> 2));
  }
  return bytes;
}

}  // namespace platform
