// SPDX-License-Identifier: Apache-2.0

// Connects to a named service: from its name to a connected stream socket.
//
// Threading: any thread.
// Ownership: the caller owns the descriptor.
// Errors: see Outcome. Before a byte is sent, the root's directory and those above it are checked
//   (openRoot in RootFiles.h), and so is the listener (SO_PEERCRED on the connected socket), which
//   must be the effective user or the superuser. A root or endpoint of anyone else is Refused.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/foundation/ProviderSlot.h"

namespace platform {

struct ServiceConnectResult {
  enum class Outcome {
    Connected,    ///< `descriptor` is a connected, non-blocking, close-on-exec Unix stream socket
    UnknownName,  ///< no job offers this name, or it is not a valid service name
    Refused,      ///< the root or the endpoint belongs to another user
    TryAgain,     ///< a temporary shortage (backlog full, out of descriptors)
  };
  Outcome outcome = Outcome::UnknownName;
  int descriptor = -1;
  std::string reason;  ///< one clause for a log line, empty when connected
};

class ServiceEndpoints {
 public:
  virtual ~ServiceEndpoints() = default;
  /// Connects; on a user's root, starts the job daemon first if none is running. Does not start the
  /// job: the daemon does when it sees the connection. May take as long as starting the daemon, so
  /// it is called on a connection's own thread, never on a caller's.
  virtual ServiceConnectResult connectToService(std::string_view service) = 0;
};

/// The process's endpoints: those of SystemRoot::current() unless a test replaces them. Never
/// destroyed.
ProviderSlot<ServiceEndpoints>& serviceEndpoints();

/// connect() and bind() for a socket path of any length: a Unix address holds 107 bytes, so the
/// address refers to the directory through an open descriptor. Return the socket, or -1 with errno.
int connectUnixSocket(const std::string& path, int type);
/// Listens with `backlog`; the socket file has mode `mode`. An existing socket file is replaced.
int listenUnixSocket(const std::string& path, int type, int backlog, unsigned mode);

}  // namespace platform
