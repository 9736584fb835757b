// SPDX-License-Identifier: Apache-2.0

// A second implementation of docs/wire-protocol.md, which shares no code with the connection layer
// and decides what a receiver must make of a stream. The layer is compared with it.
//
// Errors: none; any bytes can be judged.
// Order: events as the receiver must report them.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "tests/conformance/wire/WireMessages.h"

namespace conformance {

/// The state of a stream after its last byte.
enum class StreamState {
  Whole,       ///< between two frames
  Incomplete,  ///< inside a frame that may still become valid
  Farewell,
  Breach,
};

struct Judgement {
  /// What the receiver's side sees, one line each: "call M <arguments>", "refused CLASS", "reply
  /// <value>", "error N" (for the pending request), "breach WHY".
  std::vector<std::string> events;
  /// Frames that the receiver sends back: "reply ID" and "dropped ID".
  std::vector<std::string> answers;
  StreamState state = StreamState::Whole;
  std::string reason;  ///< of the breach, or else of the first refusal
  bool operator==(const Judgement&) const = default;
};

/// Judges the prelude followed by `bytes`, after which the stream ends.
[[nodiscard]] Judgement judge(Receiver receiver, std::span<const std::uint8_t> bytes);

/// Bytes in an event: in hex, or if there are many, their number and a checksum.
[[nodiscard]] std::string digest(std::span<const std::uint8_t> bytes);

}  // namespace conformance
