// SPDX-License-Identifier: Apache-2.0

// Feeds any bytes to the connection layer: a real connection on one end of a socket pair, the bytes
// on the other, and the result in the words of WireJudge.h.
//
// Threading: one observation at a time in a process, since it takes over the platform's log.
// Errors: std::runtime_error if the connection does not end within 20 s of the stream's end.
// Order: events as they happened.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "tests/conformance/wire/WireMessages.h"

namespace conformance {

struct Observation {
  std::vector<std::string> events;
  std::vector<std::string> answers;
};

/// Sends the prelude and `bytes`, ends the stream and waits for the connection to end.
[[nodiscard]] Observation observe(Receiver receiver, std::span<const std::uint8_t> bytes);

}  // namespace conformance
