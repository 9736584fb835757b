// SPDX-License-Identifier: Apache-2.0

// Routes a device briefly to see how far it gets.
//
// Everything the framework logs meanwhile reaches the shared logger's recent lines, whatever the
// log level; standard error gets only what the user's level admits. The shared logger's sink is
// replaced permanently, so this is for a command that has no sink of its own.
//
// Threading: the main thread, which blocks; the framework calls back on its own threads.
// Errors: in the result.
// Order: statuses and errors as they arrived.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"

namespace tool {

inline constexpr std::chrono::seconds kTrialTimeout{10};

struct TrialResult {
  std::uint64_t registryEntryID = 0;
  std::vector<WLHIDEventRouterClientStatus> statuses;
  std::vector<std::string> errors;         ///< free text from the router
  std::vector<std::int64_t> errorCodes{};  ///< of the same errors
  std::uint64_t deliveries = 0;            ///< reports and element values before the end
  std::string outcome;                     ///< "input came", "no input within 10 s", …
};

/// Ends with the first input, with a failure, or after `timeout`. Starts the router if necessary.
[[nodiscard]] TrialResult tryDevice(std::uint64_t registryEntryID,
                                    std::chrono::milliseconds timeout = kTrialTimeout);

}  // namespace tool
