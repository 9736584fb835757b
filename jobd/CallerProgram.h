// SPDX-License-Identifier: Apache-2.0

// The program of a process, for the log. A claim, no identity: whoever runs a program chooses it.
//
// Threading: any thread.
#pragma once

#include <sys/types.h>

#include <string>

namespace jobd {

/// Its path, or its own name if the path may not be read; "unknown" for a process that has ended.
[[nodiscard]] std::string programOf(pid_t process);

}  // namespace jobd
