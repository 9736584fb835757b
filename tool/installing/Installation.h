// SPDX-License-Identifier: Apache-2.0

// Installs the router through the framework.
//
// Threading: the main thread, which blocks while the authorization prompt is open.
// Errors: Failure, with the reason as text.
#pragma once

#include <memory>

#include "platform/foundation/NSString.h"

namespace tool {

/// Throws, with what is missing, if this is the system's own root and its job daemon is not there.
void requireSystemDaemon();

/// `prompt`: null for the platform's own text.
void installRouter(const std::shared_ptr<platform::NSString>& prompt);

}  // namespace tool
