// SPDX-License-Identifier: Apache-2.0

// The last line of the system log in which the router or the job daemon tells of a failure.
//
// Threading: any thread.
// Errors: a log that cannot be read has no such line.
#pragma once

#include <optional>
#include <string>

#include "tool/report/ShownLines.h"

namespace tool {

/// As it is in the log, among its last 256 KiB.
[[nodiscard]] std::optional<std::string> lastErrorIn(const std::string& logPath);

}  // namespace tool
