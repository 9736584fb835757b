// SPDX-License-Identifier: Apache-2.0

// Finds the router's label in a text.
//
// Threading: any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace diagnostics {

inline constexpr auto npos = std::string_view::npos;

/// The position of the first router label at or after `start`, or npos.
[[nodiscard]] std::size_t findRouterLabel(std::string_view text, std::size_t start);

}  // namespace diagnostics
