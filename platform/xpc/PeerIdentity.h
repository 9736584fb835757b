// SPDX-License-Identifier: Apache-2.0

// The process at the other end of a connected Unix socket, as the kernel recorded it when the
// connection was made.
//
// Threading: any thread.
// Ownership: the caller closes `process`.
// Errors: fields of -1.
#pragma once

#include <sys/types.h>

namespace platform::xpc {

struct PeerIdentity {
  uid_t user = static_cast<uid_t>(-1);
  pid_t processID = -1;
  int process = -1;  ///< a process descriptor, which never comes to refer to another process; -1
                     ///< if the kernel does not provide one
};

PeerIdentity peerOfSocket(int socket);

}  // namespace platform::xpc
