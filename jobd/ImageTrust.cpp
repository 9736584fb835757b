// SPDX-License-Identifier: Apache-2.0

#include "jobd/ImageTrust.h"

#include <algorithm>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace jobd {
namespace {

constexpr std::string_view kKeySuffix = ".pub";

bool hasKeys(const platform::SystemRoot& root) {
  const auto directory = platform::openRoot(root);
  const auto keys = platform::openPlace(directory.get(), root.places().trustedKeys);
  if (!keys) return false;
  const auto names = platform::namesIn(keys.get());
  return std::any_of(names.begin(), names.end(),
                     [](const std::string& name) { return name.ends_with(kKeySuffix); });
}

}  // namespace

/// Signatures cannot be verified yet, so with a key no image is trusted.
ImageCheck trustByKeys(const platform::SystemRoot& root) {
  return [root](std::span<const std::uint8_t>) {
    if (!hasKeys(root)) return;
    throw platform::ServiceError(
        platform::ServiceErrorCode::InvalidImage,
        "the helper is not signed by a key of /" + std::string(root.places().trustedKeys));
  };
}

}  // namespace jobd
