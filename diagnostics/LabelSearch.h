// Finding the router's label in a text.
//
// Threading: a pure function, any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace diagnostics {

inline constexpr auto npos = std::string_view::npos;

/// Where the router's label next begins at or behind `start`; npos where it does not.
[[nodiscard]] std::size_t findRouterLabel(std::string_view text, std::size_t start);

}  // namespace diagnostics
