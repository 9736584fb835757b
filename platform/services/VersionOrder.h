// SPDX-License-Identifier: Apache-2.0

// Which of two versions is newer.
//
// Threading: any thread.
#pragma once

#include <string_view>

namespace platform {

/// Whether version `a` is newer than `b`, number by number ("1.10" is newer than "1.9"). A version
/// that does not consist of numbers is never newer.
[[nodiscard]] bool isNewer(std::string_view a, std::string_view b);

/// Whether it can be compared: one or more numbers, with dots between them.
[[nodiscard]] bool consistsOfNumbers(std::string_view version);

}  // namespace platform
