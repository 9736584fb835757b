// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/UTF8Validator.h"

#include <array>
#include <cstring>

namespace platform {
namespace {

// The compiler's vector extension: uses the processor's vectors, or plain words if it has none.
using Vector = std::uint64_t __attribute__((vector_size(16)));
constexpr std::size_t kVectors = 8;
constexpr std::size_t kBlock = kVectors * sizeof(Vector);

bool isASCIIBlock(const char* block) {
  std::array<Vector, kVectors> v;
  std::memcpy(v.data(), block, kBlock);
  const Vector all = ((v[0] | v[1]) | (v[2] | v[3])) | ((v[4] | v[5]) | (v[6] | v[7]));
  return ((all[0] | all[1]) & 0x8080808080808080U) == 0;
}

/// Nearly all of a log is ASCII, for which nothing else needs to be done.
const char* skipASCII(const char* at, const char* end) {
  while (static_cast<std::size_t>(end - at) >= kBlock && isASCIIBlock(at)) at += kBlock;
  while (at != end && static_cast<std::uint8_t>(*at) < 0x80) ++at;
  return at;
}

}  // namespace

bool UTF8Validator::acceptLeadByte(std::uint8_t byte) {
  lowest_ = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
  highest_ = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
  if (byte < 0xC2 || byte > 0xF4) return false;
  missing_ = byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
  return true;
}

bool UTF8Validator::accept(std::string_view piece) {
  const char* const end = piece.data() + piece.size();
  for (const char* at = piece.data(); at != end && missing_ >= 0; ++at) {
    if (missing_ == 0) {
      at = skipASCII(at, end);
      if (at == end) break;
      if (!acceptLeadByte(static_cast<std::uint8_t>(*at))) missing_ = -1;
      continue;
    }
    const auto byte = static_cast<std::uint8_t>(*at);
    missing_ = byte >= lowest_ && byte <= highest_ ? missing_ - 1 : -1;
    lowest_ = 0x80;
    highest_ = 0xBF;
  }
  return missing_ >= 0;
}

}  // namespace platform
