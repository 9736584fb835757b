// SPDX-License-Identifier: Apache-2.0

// The devices of the system's own root, as its router shows them to this user.
//
// Threading: the main thread; each call waits for the router.
// Errors: Failure if the router does not answer.
#pragma once

#include <string>

#include "router/control/DeviceListing.h"

namespace tool {

/// Prints them. Returns the exit status.
[[nodiscard]] int listOfSystem(bool asJson, bool withReasons);

/// The one with that name, or that ID; Failure if there is none, or more than one.
[[nodiscard]] router::ListedDevice systemDevice(const std::string& text);

}  // namespace tool
