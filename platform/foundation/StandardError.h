// SPDX-License-Identifier: Apache-2.0

// Writes whole lines to standard error.
//
// Threading: any thread.
// Errors: what cannot be written is lost; errno is preserved.
#pragma once

#include <string_view>

namespace platform {

/// `line` and a line feed in one write.
void writeLineToStandardError(std::string_view line);

}  // namespace platform
