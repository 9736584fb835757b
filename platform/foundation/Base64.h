// Bytes as text of 64 characters (RFC 4648), as XML property lists carry them.
//
// Threading: pure functions.
// Errors: null for text that is not what the encoder would have written, blanks aside.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

[[nodiscard]] std::string base64(std::span<const std::uint8_t> bytes);

/// Blanks and line ends may stand anywhere; the padding must be there.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> bytesOfBase64(std::string_view text);

}  // namespace platform
