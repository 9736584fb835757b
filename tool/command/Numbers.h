// SPDX-License-Identifier: Apache-2.0

// Numbers as a person types them.
//
// Threading: any thread.
// Errors: nothing for text that is not a number, or a number that is too large.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// Decimal, or hexadecimal after "0x". No sign, no blanks.
[[nodiscard]] std::optional<std::uint64_t> parseNumber(std::string_view text);
/// "0x100000abc"
[[nodiscard]] std::string hexadecimal(std::uint64_t number);

}  // namespace tool
