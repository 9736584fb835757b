// SPDX-License-Identifier: Apache-2.0

// The messages that polkit understands, and what its answers mean.
//
// polkit wants exactly these types: of a process it takes the ID as "u", the start time as "t" and
// the user as "i". A user of another type it overlooks, and then looks the user up itself, by the
// process ID, at a time that the process may choose.
//
// Threading: the bus's thread.
#pragma once

#include <string>

#include "platform/system/BusTypes.h"
#include "platform/system/PolkitClient.h"

namespace platform::system {

/// Why the question cannot be put; empty if it can.
[[nodiscard]] std::string whyUnaskable(const PolkitQuestion& question);
/// Null if it cannot be made.
[[nodiscard]] BusMessage composeQuestion(sd_bus* connection, const PolkitQuestion& question,
                                         const std::string& cancellation);
/// Takes a question back. polkit's answer to it is not wanted, and it is not started for it.
[[nodiscard]] BusMessage composeCancellation(sd_bus* connection, const std::string& cancellation);
[[nodiscard]] PolkitAnswer readAnswer(sd_bus_message* message, bool mayAskPerson);

}  // namespace platform::system
