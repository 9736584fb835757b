// A second reading of docs/wire-protocol.md, which shares no code with the connection layer: what a
// receiver must make of a stream. The layer is held against it.
//
// Threading: functions of their arguments. Ownership: values. Errors: none; any bytes have a
// judgement. Order: events as the receiver must show them.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "tests/conformance/wire/WireMessages.h"

namespace conformance {

/// How a stream stands when its last byte is read.
enum class StreamState {
  Whole,       ///< between two frames
  Incomplete,  ///< inside a frame that may still become a good one
  Farewell,
  Breach,
};

struct Judgement {
  /// What the receiver's side sees, one line each: "call M <arguments>", "refused CLASS",
  /// "reply <value>", "error N" (of the request that waits), "breach WHY".
  std::vector<std::string> events;
  /// Frames that the receiver sends back: "reply ID" and "dropped ID".
  std::vector<std::string> answers;
  StreamState state = StreamState::Whole;
  std::string reason;  ///< of the breach, else of the first refusal
  bool operator==(const Judgement&) const = default;
};

/// The judgement of the prelude and `bytes` behind it, after which the stream ends.
[[nodiscard]] Judgement judge(Receiver receiver, std::span<const std::uint8_t> bytes);

/// Bytes in an event: in hex, or where they are many their number and a checksum.
[[nodiscard]] std::string digest(std::span<const std::uint8_t> bytes);

}  // namespace conformance
