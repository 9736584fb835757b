// SPDX-License-Identifier: Apache-2.0

// Files and directories below a system root, reached without following a symbolic link.
//
// Threading: any thread.
// Ownership: descriptors belong to the caller.
// Errors: ServiceError (FileSystem, NotPermitted) naming the path and the cause.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"

namespace platform {

/// The maximum size of a job file that is read.
inline constexpr std::size_t kMaximumJobFileBytes = std::size_t{64} * 1024;
/// The maximum size of a helper executable that is read or installed.
inline constexpr std::size_t kMaximumHelperBytes = std::size_t{64} * 1024 * 1024;

/// The root directory, for using it; empty if it does not exist. It is opened from "/" one
/// directory at a time, without following symbolic links. The root and every directory above it
/// must belong to the superuser or the effective user and be writable by nobody else (except that
/// others can do no harm in a sticky directory above it), so that nobody else can change or replace
/// the root. Otherwise throws NotPermitted, naming the directory, the cause and the remedy. The
/// path to the root opened last is not walked again while the same directory is there with the same
/// owner and mode, so frequent checks whether a job is installed pay for the walk only once.
[[nodiscard]] FileDescriptor openRoot(const SystemRoot& root);

/// The same for the process that manages the root and writes to it: the root must belong to the
/// effective user, and missing directories are created.
[[nodiscard]] FileDescriptor openOwnRoot(const SystemRoot& root);

/// Throws NotPermitted unless an open directory belongs to the effective user and is writable by
/// nobody else. `name` is for the message.
void checkIsOwn(int directory, const std::string& name);

/// A directory below an open one; no component may be a link. Empty if a component is missing and
/// `create` is false. Directories are created with mode 0755.
[[nodiscard]] FileDescriptor openDirectoryBelow(int directory, std::string_view relativePath,
                                                bool create);

/// A directory below an open root (SystemPlaces.h), in the same way. On the system's own root each
/// directory of `place` must also belong to the superuser and be writable by nobody else; otherwise
/// throws NotPermitted.
[[nodiscard]] FileDescriptor openPlace(int rootDirectory, std::string_view place,
                                       bool create = false);

/// The contents of a regular file; nothing if it does not exist. Throws if it is a link, a device,
/// too large or unreadable.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> readFileIn(int directory,
                                                                  const std::string& name,
                                                                  std::size_t maximumBytes);

/// The same for an open descriptor, from the first byte, whatever its offset. `name` is for
/// messages.
[[nodiscard]] std::vector<std::uint8_t> readDescriptor(int descriptor, const std::string& name,
                                                       std::size_t maximumBytes);

/// The names in an open directory, sorted, without "." and "..". Leaves the descriptor unchanged.
/// None if it cannot be read.
[[nodiscard]] std::vector<std::string> namesIn(int directory);
/// The same, but throws if it cannot be read. `name` is for the message.
[[nodiscard]] std::vector<std::string> namesInOrThrow(int directory, const std::string& name);

/// Whether the user's files may be trusted: true for the effective user and the superuser, and in a
/// sandbox for everybody outside (see UserNamespace.h), whose files its builder has put there.
[[nodiscard]] bool isTrustedUser(uid_t user);

}  // namespace platform
