// Unix sockets by path of any length.
//
// An address holds 107 bytes. Here a socket file is reached through an open descriptor instead of
// its path, so the depth of its directory and the length of its name don't matter, and no symbolic
// link is followed at the last component.
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

/// Listens on a new socket file `name` with `mode`. It takes the place of what has that name at
/// once, whole: whoever connects reaches the old endpoint or the new one, listening.
[[nodiscard]] FileDescriptor listenUnixSocketAt(int directory, const std::string& name, int type,
                                                int backlog, unsigned mode);

/// Who is at the other end, as the kernel recorded it when the two were joined.
struct PeerCredentials {
  uid_t user;
  pid_t process;
};
[[nodiscard]] std::optional<PeerCredentials> peerCredentials(int socket);

}  // namespace platform
