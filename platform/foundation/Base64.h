// SPDX-License-Identifier: Apache-2.0

// Base64 (RFC 4648), as XML property lists use it.
//
// Threading: any thread.
// Errors: null for text that the encoder would not have written, apart from blanks.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

[[nodiscard]] std::string base64(std::span<const std::uint8_t> bytes);

/// Blanks and line ends may appear anywhere; padding is required.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> bytesOfBase64(std::string_view text);

}  // namespace platform
