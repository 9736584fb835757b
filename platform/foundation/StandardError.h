// Whole lines to standard error.
//
// Threading: any thread. Ownership, Order: nothing is kept. Errors: what cannot be written is lost;
//   errno is kept.
#pragma once

#include <string_view>

namespace platform {

/// `line` and a line feed in one write.
void writeLineToStandardError(std::string_view line);

}  // namespace platform
