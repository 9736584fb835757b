// Reading a file that a person named.
//
// Threading: any thread.
// Ownership: the result is the caller's.
// Errors: Failure, "FILE: cause".
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/foundation/NSData.h"

namespace tool {

/// No executable that a helper could be is larger.
inline constexpr std::size_t kMaxFileBytes = std::size_t{256} << 20;

/// The whole file. Only regular files of at most `limit` bytes are read, so that a pipe or a device
/// never makes the command wait.
[[nodiscard]] std::shared_ptr<platform::NSData> readWholeFile(const std::string& path,
                                                              std::size_t limit = kMaxFileBytes);

}  // namespace tool
