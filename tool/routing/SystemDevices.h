// SPDX-License-Identifier: Apache-2.0

// The devices of the system's own root, as its router shows them to this user.
//
// Threading: the main thread; each call waits for the router.
// Errors: see each function.
#pragma once

#include <string>

#include "router/control/DeviceListing.h"

namespace tool {

/// Prints them. If the router does not answer, complains and returns false.
[[nodiscard]] bool printSystemDevices(bool asJson, bool withReasons);

/// The one with that name, or that ID; Failure if there is none, or more than one, or the router
/// does not answer.
[[nodiscard]] router::ListedDevice systemDevice(const std::string& text);

}  // namespace tool
