// Files and directories below a system root, reached without following a symbolic link.
//
// Threading: any thread. Ownership: descriptors belong to the caller. Order: none.
// Errors: ServiceError (FileSystem, NotPermitted) naming the path and the cause.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"

namespace platform {

/// The largest job file that is read.
inline constexpr std::size_t maximumJobFileBytes = std::size_t{64} * 1024;
/// The largest helper executable that is read or installed.
inline constexpr std::size_t maximumHelperBytes = std::size_t{64} * 1024 * 1024;

/// The root itself. Its own path is the caller's word, and may go through links. Empty when there
/// is none.
[[nodiscard]] FileDescriptor openRoot(const SystemRoot& root);

/// A directory below an open one, each component opened without following a link; empty when a
/// component is missing and not to be made. Directories that are made have mode 0755.
[[nodiscard]] FileDescriptor openDirectoryBelow(int directory, std::string_view relativePath,
                                                bool create);

/// A regular file, whole; empty when there is none. Throws when it is a link, a device, too large
/// or unreadable.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> readFileIn(int directory,
                                                                  const std::string& name,
                                                                  std::size_t maximumBytes);

/// The same for a descriptor that is already open, from its first byte, whatever its offset. `name`
/// is for messages.
[[nodiscard]] std::vector<std::uint8_t> readDescriptor(int descriptor, const std::string& name,
                                                       std::size_t maximumBytes);

/// The names in an open directory, sorted, without "." and "..". The descriptor is left as it is.
[[nodiscard]] std::vector<std::string> namesIn(int directory);

/// The owner of the root's directory; empty when there is none.
[[nodiscard]] std::optional<uid_t> ownerOfRoot(const SystemRoot& root);

}  // namespace platform
