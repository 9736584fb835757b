// Who is at the other end of a connected Unix socket, as the kernel noted it when the connection
// was made.
//
// Threading: any thread.
// Ownership: `process` is the caller's to close.
// Errors: fields of -1.
#pragma once

#include <sys/types.h>

namespace platform::xpc {

struct PeerIdentity {
  uid_t user = static_cast<uid_t>(-1);
  pid_t processID = -1;
  int process = -1;  ///< a process descriptor, which cannot come to mean another process; -1 where
                     ///< the kernel has none
};

PeerIdentity peerOfSocket(int socket);

}  // namespace platform::xpc
