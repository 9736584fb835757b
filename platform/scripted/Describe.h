// SPDX-License-Identifier: Apache-2.0

// One-line descriptions of arguments and results for traces.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSObject.h"
#include "platform/xpc/NSXPCInterface.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform {

/// The description with each run of blanks and line feeds replaced by one blank; "nil" for null.
[[nodiscard]] std::string describe(const std::shared_ptr<NSObject>& object);
[[nodiscard]] std::string describe(std::string_view text);
/// The protocol's name, or "nil".
[[nodiscard]] std::string describeInterface(const std::shared_ptr<NSXPCInterface>& interface);
[[nodiscard]] std::vector<std::string> describeValues(const XPCValues& values);
/// "(A, B)"
[[nodiscard]] std::string describeClasses(const NSClassSet& classes);

}  // namespace platform
