// SPDX-License-Identifier: Apache-2.0

// The service's end: accepts connections to a named endpoint.
//
// Threading: resume and invalidate may be called from any thread; the delegate is called on the
//   listener's own thread.
// Ownership: the delegate is held weakly. The delegate must keep a connection that it accepts: it
//   ends quietly when its last reference goes.
// Errors: a factory returns null, with the reason in errno, if there is no such descriptor.
// Order: connections are offered in the order in which the kernel returns them.
// Forks: in a forked child an inherited listener accepts nothing.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/foundation/NSString.h"
#include "platform/xpc/NSXPCConnection.h"

namespace platform {

class NSXPCListener;

/// What the connections of one listener may cost. Each limit names the harm that it prevents.
struct NSXPCListenerLimits {
  /// A peer that connects and stays silent would hold a thread and a descriptor forever: a
  /// connection without a hello by then is closed.
  std::chrono::milliseconds helloWithin{5000};
  /// Many such connections at once would take every place: beyond this number, the user's oldest
  /// one is closed for the next.
  std::size_t withoutHelloOfUser = 32;
  /// One user would lock everyone else out: further connections are refused.
  std::size_t connectionsOfUser = 192;
  /// The process would run out of threads and descriptors (three per connection).
  std::size_t connections = 256;
  /// Clients that do not read would use up the process's memory; a user's many connections may take
  /// no more than a single one. Further messages are dropped and counted, but a connection with
  /// nothing unsent may always send its next message.
  std::size_t unsentBytesOfUser = kXPCUnsentLimit;
  /// The same for all users together.
  std::size_t unsentBytes = std::size_t{128} << 20;
};

class NSXPCListenerDelegate {
 public:
  virtual ~NSXPCListenerDelegate() = default;
  /// Configure and resume the connection and return true, or return false to refuse it (it is then
  /// invalidated, which the peer sees as a farewell). Not called for a connection beyond the
  /// limits, which is refused.
  virtual bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<NSXPCListener>& listener,
      const std::shared_ptr<NSXPCConnection>& connection) = 0;
};

class NSXPCListener {
 public:
  /// Uses the descriptor that was passed to this process for `service` (LISTEN_PID, LISTEN_FDS,
  /// LISTEN_FDNAMES).
  static std::shared_ptr<NSXPCListener> initWithMachServiceName(
      const std::shared_ptr<NSString>& service);
  /// Takes ownership of a listening Unix stream socket.
  static std::shared_ptr<NSXPCListener> initWithListeningDescriptor(int descriptor);

  virtual ~NSXPCListener() = default;
  virtual void setDelegate(std::weak_ptr<NSXPCListenerDelegate> delegate) = 0;
  /// Has no effect after resume.
  virtual void setLimits(const NSXPCListenerLimits& limits) = 0;
  virtual void resume() = 0;
  /// No further connections are offered; those already accepted live on.
  virtual void invalidate() = 0;
};

/// Connections of this process that have not fully ended, so that they still hold a thread or
/// descriptors. For tests and status.
[[nodiscard]] std::size_t liveConnectionCount();

}  // namespace platform
