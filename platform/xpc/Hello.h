// The first frame of each direction: who speaks which version and which protocols.
//
// Threading, Ownership, Order: values. Errors: null (no value) for bytes that are no hello.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/xpc/Wire.h"

namespace platform::xpc {

inline constexpr std::string_view kHelloMagic = "WLHX";
inline constexpr std::uint16_t kWireVersion = 2;
inline constexpr std::size_t kMaxProtocolName = 254;

struct Hello {
  std::uint16_t version = kWireVersion;
  std::string
      exported;  ///< the protocol of the sender's exported object, empty when it exports none
  std::string
      remote;  ///< the protocol that the sender expects of its peer, empty when it sends nothing
};

/// Writes the whole frame. Names longer than kMaxProtocolName throw std::invalid_argument.
void writeHello(WireWriter& writer, const Hello& hello);
/// `body` is what follows the frame header. A hello of another version yields just that version:
/// its rest is unknown.
std::optional<Hello> readHello(std::span<const std::uint8_t> body);

/// Why `ours` and `theirs` cannot work together; empty when they can.
std::string mismatch(const Hello& ours, const Hello& theirs);

}  // namespace platform::xpc
