// SPDX-License-Identifier: Apache-2.0

// The first frame of each direction: the version and the protocols of its sender.
//
// Errors: no value for a malformed hello.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/xpc/Wire.h"

namespace platform::xpc {

inline constexpr std::string_view kHelloMagic = "WLHX";
inline constexpr std::uint16_t kWireVersion = 2;
inline constexpr std::size_t kMaxProtocolName = 254;

struct Hello {
  std::uint16_t version = kWireVersion;
  std::string exported;  ///< the protocol of the sender's exported object; empty if none
  std::string remote;    ///< the protocol that the sender expects of its peer; empty if none
};

/// Writes the whole frame. A name longer than kMaxProtocolName throws std::invalid_argument.
void writeHello(WireWriter& writer, const Hello& hello);
/// `body` is what follows the frame header. A hello of another version yields only that version,
/// since the format of the rest is unknown.
std::optional<Hello> readHello(std::span<const std::uint8_t> body);

/// Why `ours` and `theirs` do not match; empty if they do.
std::string mismatch(const Hello& ours, const Hello& theirs);

}  // namespace platform::xpc
