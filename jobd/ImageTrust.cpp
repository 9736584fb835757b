// SPDX-License-Identifier: Apache-2.0

#include "jobd/ImageTrust.h"

#include <algorithm>

#include "platform/foundation/PrintableText.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "platform/signing/ImageSignature.h"

namespace jobd {
namespace {

using platform::ServiceError;
using platform::ServiceErrorCode;
using platform::signing::PublicKey;

constexpr std::string_view kKeySuffix = ".pub";
constexpr std::size_t kMaximumKeyBytes = 4096;

PublicKey readKey(int directory, const std::string& name, const std::string& place) {
  const auto bytes = platform::readFileIn(directory, name, kMaximumKeyBytes);
  const auto key = bytes ? platform::signing::publicKeyIn(std::string(bytes->begin(), bytes->end()))
                         : std::nullopt;
  if (!key)
    throw ServiceError(ServiceErrorCode::InvalidImage, place + "/" + platform::printableLine(name) +
                                                           " is not a public key: remove it, or "
                                                           "replace it with one of wlhid sign");
  return *key;
}

/// A key that cannot be read must not count as none.
std::vector<PublicKey> readKeys(const platform::SystemRoot& root, const std::string& place) {
  const auto directory = platform::openRoot(root);
  const auto keys = platform::openPlace(directory.get(), root.places().trustedKeys);
  std::vector<PublicKey> all;
  if (!keys) return all;
  for (const auto& name : platform::namesInOrThrow(keys.get(), place)) {
    if (name.ends_with(kKeySuffix)) all.push_back(readKey(keys.get(), name, place));
  }
  return all;
}

}  // namespace

ImageCheck trustByKeys(const platform::SystemRoot& root) {
  return [root](std::span<const std::uint8_t> image) {
    const std::string place = "/" + std::string(root.places().trustedKeys);
    const auto keys = readKeys(root, place);
    const bool isTrusted = std::any_of(keys.begin(), keys.end(), [&](const PublicKey& key) {
      return platform::signing::isSignedWith(image, key);
    });
    if (keys.empty() || isTrusted) return;
    throw ServiceError(ServiceErrorCode::InvalidImage,
                       "the helper is not signed with a key in " + place);
  };
}

}  // namespace jobd
