// SPDX-License-Identifier: Apache-2.0

// The platform's plain diagnostic line.
//
// Threading: any thread; a line is written whole.
// Errors: never fails.
// Order: lines of one thread keep their order.
#pragma once

#include <string_view>

#include "platform/foundation/Format.h"

namespace platform {

/// Writes one line through the foundation provider, by default to standard error.
void NSLogString(std::string_view text);

template <class... Args>
void NSLog(std::string_view format, const Args&... args) {
  NSLogString(stringWithFormat(format, args...));
}

}  // namespace platform
