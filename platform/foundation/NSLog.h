// The platform's plain diagnostic line.
//
// Threading: any thread; a line is written whole. Ownership, Errors, Order: nothing is kept,
//   nothing fails, lines of one thread keep their order.
#pragma once

#include "platform/foundation/Format.h"

namespace platform {

/// Writes one line to standard error (or to the foundation provider that is in place).
void NSLogString(std::string_view text);

template <class... Args>
void NSLog(std::string_view format, const Args&... args) {
  NSLogString(stringWithFormat(format, args...));
}

}  // namespace platform
