// SPDX-License-Identifier: Apache-2.0

#include "platform/signing/ImageSignature.h"

#include <sodium.h>

#include <algorithm>
#include <stdexcept>

#include "platform/foundation/Base64.h"

namespace platform::signing {
namespace {

constexpr std::string_view kMark = "wlhid-ed25519-01";
static_assert(crypto_sign_BYTES + kMark.size() == kTrailerBytes);
static_assert(std::tuple_size_v<PublicKey> == crypto_sign_PUBLICKEYBYTES);
static_assert(std::tuple_size_v<SecretKey> == crypto_sign_SECRETKEYBYTES);

void prepareLibrary() {
  if (::sodium_init() < 0) throw std::runtime_error("the library for signatures cannot be used");
}

/// The line of a key file that holds the key; empty if there is none, or more than one.
std::string_view keyLine(std::string_view text) {
  std::string_view found;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.empty() || line.front() == '#') continue;
    if (!found.empty()) return {};
    found = line;
  }
  return found;
}

template <class Key>
std::optional<Key> keyIn(std::string_view text) {
  const auto bytes = bytesOfBase64(keyLine(text));
  Key key{};
  if (!bytes || bytes->size() != key.size()) return std::nullopt;
  std::copy(bytes->begin(), bytes->end(), key.begin());
  return key;
}

bool hasTrailer(std::span<const std::uint8_t> image) {
  if (image.size() < kTrailerBytes) return false;
  const auto mark = image.last(kMark.size());
  return std::equal(mark.begin(), mark.end(), kMark.begin(), kMark.end(),
                    [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); });
}

}  // namespace

KeyPair newKeyPair() {
  prepareLibrary();
  KeyPair pair;
  ::crypto_sign_keypair(pair.publicKey.data(), pair.secretKey.data());
  return pair;
}

std::string textOf(const PublicKey& key) {
  return "# A public key of wlhid sign: whose helpers may be installed.\n" + base64(key) + "\n";
}

std::string textOf(const SecretKey& key) {
  return "# The secret key of wlhid sign: keep it to yourself.\n" + base64(key) + "\n";
}

std::optional<PublicKey> publicKeyIn(std::string_view text) {
  return keyIn<PublicKey>(text);
}

std::optional<SecretKey> secretKeyIn(std::string_view text) {
  return keyIn<SecretKey>(text);
}

std::span<const std::uint8_t> withoutTrailer(std::span<const std::uint8_t> image) {
  return hasTrailer(image) ? image.first(image.size() - kTrailerBytes) : image;
}

Trailer trailerFor(std::span<const std::uint8_t> image, const SecretKey& key) {
  prepareLibrary();
  Trailer trailer{};
  ::crypto_sign_detached(trailer.data(), nullptr, image.data(), image.size(), key.data());
  std::copy(kMark.begin(), kMark.end(), trailer.begin() + crypto_sign_BYTES);
  return trailer;
}

bool isSignedWith(std::span<const std::uint8_t> image, const PublicKey& key) {
  prepareLibrary();
  if (!hasTrailer(image)) return false;
  const auto content = withoutTrailer(image);
  return ::crypto_sign_verify_detached(image.data() + content.size(), content.data(),
                                       content.size(), key.data()) == 0;
}

}  // namespace platform::signing
