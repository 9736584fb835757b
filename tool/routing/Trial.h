// Routing a device for a moment, to see how far it comes.
//
// Everything that the framework logs meanwhile reaches the shared logger's recent lines, whatever
// the log level; on standard error stands only what the user's level admits. The shared logger's
// sink is replaced for good, so this is for a command that has no other.
//
// Threading: the main thread, which waits; the framework calls on its own. Ownership: values.
// Errors: how it went is the result. Order: statuses and errors as they came.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterClient.h"

namespace tool {

inline constexpr std::chrono::seconds kTrialPatience{10};

struct TrialResult {
  std::uint64_t registryEntryID = 0;
  std::vector<WLHIDEventRouterClientStatus> statuses;
  std::vector<std::string> errors;         ///< free text of the router's
  std::vector<std::int64_t> errorCodes{};  ///< of the same errors
  std::uint64_t deliveries = 0;  ///< reports and element values that came before it was ended
  std::string outcome;           ///< "input came", "no input within 10 s", …
};

/// Ends with the first input, with a failure, or when `patience` is used up. Starts the router if
/// need be.
[[nodiscard]] TrialResult tryDevice(std::uint64_t registryEntryID,
                                    std::chrono::milliseconds patience = kTrialPatience);

}  // namespace tool
