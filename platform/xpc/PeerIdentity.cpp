// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/PeerIdentity.h"

#include <sys/socket.h>

namespace platform::xpc {

PeerIdentity peerOfSocket(int socket) {
  PeerIdentity peer;
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 &&
      size == sizeof credentials) {
    peer.user = credentials.uid;
    peer.processID = credentials.pid;
  }
#ifdef SO_PEERPIDFD
  int descriptor = -1;
  size = sizeof descriptor;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &descriptor, &size) == 0)
    peer.process = descriptor;
#endif
  return peer;
}

}  // namespace platform::xpc
