// SPDX-License-Identifier: Apache-2.0

// Since when something has been so, in words.
//
// Threading: any thread.
// Errors: none.
#pragma once

#include <chrono>
#include <string>

namespace tool::monitor {

/// The local time and how long ago that was, in its largest whole unit: "12:03:04 (5 min)". A
/// clock that has been set back since then gives "0 s".
[[nodiscard]] std::string sinceText(std::chrono::system_clock::time_point since,
                                    std::chrono::system_clock::time_point now);

}  // namespace tool::monitor
