// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/PeerIdentity.h"

#include <sys/socket.h>

namespace platform::xpc {
namespace {

template <class Value>
bool readOption(int socket, int option, Value& value) {
  socklen_t size = sizeof value;
  return ::getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 && size == sizeof value;
}

}  // namespace

PeerIdentity peerOfSocket(int socket) {
  PeerIdentity peer;
  ucred credentials{};
  if (readOption(socket, SO_PEERCRED, credentials)) {
    peer.user = credentials.uid;
    peer.processID = credentials.pid;
  }
#ifdef SO_PEERPIDFD
  int descriptor = -1;
  if (readOption(socket, SO_PEERPIDFD, descriptor)) peer.process = descriptor;
#endif
  return peer;
}

}  // namespace platform::xpc
