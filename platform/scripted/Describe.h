// How traces print what calls were given and what they answered: on one line each.
//
// Threading: pure functions.
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

/// The description with every run of blanks and line feeds as one blank; "nil" for null.
[[nodiscard]] std::string describe(const std::shared_ptr<NSObject>& object);
[[nodiscard]] std::string describe(std::string_view text);
/// The protocol's name, or "nil".
[[nodiscard]] std::string describeInterface(const std::shared_ptr<NSXPCInterface>& interface);
[[nodiscard]] std::vector<std::string> describeValues(const XPCValues& values);
/// "(A, B)"
[[nodiscard]] std::string describeClasses(const NSClassSet& classes);

}  // namespace platform
