// SPDX-License-Identifier: Apache-2.0

// Signatures of helper images.
//
// A signed image is the image followed by 80 bytes: an Ed25519 signature of all bytes before it
// (64), and a mark (16). Readers of the image overlook them. A key is a text file with one line of
// base64, besides empty lines and comments, which begin with "#".
//
// Threading: any thread.
// Errors: a text that holds no key gives nothing.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace platform::signing {

using PublicKey = std::array<std::uint8_t, 32>;
using SecretKey = std::array<std::uint8_t, 64>;

inline constexpr std::size_t kTrailerBytes = 80;
using Trailer = std::array<std::uint8_t, kTrailerBytes>;

struct KeyPair {
  PublicKey publicKey{};
  SecretKey secretKey{};
};

[[nodiscard]] KeyPair newKeyPair();

[[nodiscard]] std::string textOf(const PublicKey& key);
[[nodiscard]] std::string textOf(const SecretKey& key);
[[nodiscard]] std::optional<PublicKey> publicKeyIn(std::string_view text);
[[nodiscard]] std::optional<SecretKey> secretKeyIn(std::string_view text);

/// The image without its trailer, or the whole image if it has none.
[[nodiscard]] std::span<const std::uint8_t> withoutTrailer(std::span<const std::uint8_t> image);

/// What to append to an image without a trailer.
[[nodiscard]] Trailer trailerFor(std::span<const std::uint8_t> image, const SecretKey& key);

/// Whether the image has a trailer, and its signature was made with the key's secret half.
[[nodiscard]] bool isSignedWith(std::span<const std::uint8_t> image, const PublicKey& key);

}  // namespace platform::signing
