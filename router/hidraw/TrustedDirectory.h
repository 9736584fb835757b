// SPDX-License-Identifier: Apache-2.0

// Reaching a file below /dev or /sys without following a link and without passing a directory that
// somebody else could change.
//
// Threading: any thread.
// Ownership: descriptors belong to the caller.
// Errors: std::system_error: operation_not_permitted for a directory that is not to be trusted, a
//   path with an empty part, "." or "..", or one that does not begin with `top`.
#pragma once

#include <string>

#include "platform/services/FileDescriptor.h"

namespace router {

struct TrustedPlace {
  platform::FileDescriptor directory;
  std::string name;  ///< the last part of the path
};

/// The open directory that holds `path`, reached from `top`: "/dev" or "/sys".
[[nodiscard]] TrustedPlace openDirectoryOf(const std::string& path, const std::string& top);

}  // namespace router
