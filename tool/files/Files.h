// SPDX-License-Identifier: Apache-2.0

// Reads a file named by a person.
//
// Threading: any thread.
// Errors: Failure, "FILE: cause".
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/foundation/NSData.h"

namespace tool {

/// Larger than any possible helper.
inline constexpr std::size_t kMaxFileBytes = std::size_t{256} << 20;

/// The whole file. Reads only regular files of at most `limit` bytes, so that a pipe or a device
/// never blocks the command.
[[nodiscard]] std::shared_ptr<platform::NSData> readWholeFile(const std::string& path,
                                                              std::size_t limit = kMaxFileBytes);

}  // namespace tool
