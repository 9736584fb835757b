// Files and directories below a system root, reached without following a symbolic link.
//
// Threading: any thread.
// Ownership: descriptors belong to the caller.
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

/// The root itself, for who uses it; empty when there is none. It is reached from "/" one directory
/// at a time, through no symbolic link. It and every directory above it belong to the superuser or
/// to the effective user and can be written by nobody else (in a sticky directory above it, others
/// can do no harm): what is below it is theirs, and nobody can put another root in its place. Else
/// NotPermitted, naming the directory, the cause and the cure. The way to a root that was reached
/// before is not walked again as long as the very same directory is there, as closed as it was:
/// who asks often whether a job is installed pays for the way once.
[[nodiscard]] FileDescriptor openRoot(const SystemRoot& root);

/// The same for who keeps the root and writes in it: it must be the effective user's own, and what
/// is missing of it is made.
[[nodiscard]] FileDescriptor openOwnRoot(const SystemRoot& root);

/// Throws NotPermitted unless an open directory belongs to the effective user and can be written by
/// nobody else. `name` is for the message.
void checkIsOwn(int directory, const std::string& name);

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

/// Whether what belongs to that user may be relied on: it is the effective user or the superuser.
[[nodiscard]] bool isTrustedUser(uid_t user);

}  // namespace platform
