// SPDX-License-Identifier: Apache-2.0

// Unix sockets at paths of any length.
//
// An address holds 107 bytes. Here a socket file is addressed through an open descriptor instead of
// its path, so the depth of its directory and the length of its name don't matter, and a symbolic
// link as the last component is not followed.
//
// Threading: any thread.
// Ownership: descriptors belong to the caller.
// Errors: empty, with errno.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "platform/services/FileDescriptor.h"

namespace platform {

/// Connects to the socket file `name` in `directory`. `type` may carry SOCK_NONBLOCK; close-on-exec
/// is always set.
[[nodiscard]] FileDescriptor connectUnixSocketAt(int directory, const std::string& name, int type);

/// Listens on a new socket file `name` with `mode`. It replaces an existing file of that name
/// atomically: a client connects to the old endpoint or to the new one, which is listening.
[[nodiscard]] FileDescriptor listenUnixSocketAt(int directory, const std::string& name, int type,
                                                int backlog, unsigned mode);

/// The peer's credentials, as the kernel recorded them when the connection was made.
struct PeerCredentials {
  uid_t user;
  pid_t process;
};
[[nodiscard]] std::optional<PeerCredentials> peerCredentials(int socket);

}  // namespace platform
