// The service's end: accepts connections to a named endpoint.
//
// Threading: resume and invalidate may be called from any thread; the delegate is asked on the
//   listener's own thread.
// Ownership: the delegate is held weakly. A connection that the delegate accepts is the delegate's
//   to keep: it ends quietly when nobody holds it.
// Errors: a factory returns null, with a reason in errno, when there is no such descriptor.
// Order: connections are offered in the order in which the kernel hands them out.
// Forks: in a child of the process that made it a listener accepts nothing.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "platform/xpc/NSXPCConnection.h"

namespace platform {

class NSXPCListener;

/// What the connections of one listener may cost. Each bound is there for the harm that it names.
struct NSXPCListenerLimits {
  /// Whoever connects and says nothing would hold a thread and a descriptor for ever: a connection
  /// that has not said its hello by then is closed.
  std::chrono::milliseconds helloWithin{5000};
  /// Many such connections at once would take every place: of one user's the oldest is ended for
  /// the next one.
  std::size_t withoutHelloOfUser = 32;
  /// One user would keep all others out: further connections are refused.
  std::size_t connectionsOfUser = 192;
  /// The process would run out of threads and descriptors, of which a connection takes three.
  std::size_t connections = 256;
  /// Clients that do not read would take the process's memory, one user's many as much as one alone
  /// may: messages to them are dropped and counted. A connection whose own messages are all written
  /// may always send the next one.
  std::size_t unsentBytesOfUser = kXPCUnsentLimit;
  /// The same of several users together.
  std::size_t unsentBytes = std::size_t{128} << 20;
};

class NSXPCListenerDelegate {
 public:
  virtual ~NSXPCListenerDelegate() = default;
  /// Not asked about a connection beyond the limits: that one is refused.
  /// Configure and resume the connection and return true, or return false to refuse it (it is then
  /// invalidated, which the peer sees as a farewell).
  virtual bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<NSXPCListener>& listener,
      const std::shared_ptr<NSXPCConnection>& connection) = 0;
};

class NSXPCListener {
 public:
  /// The descriptor that this process was handed for `service` (LISTEN_PID, LISTEN_FDS,
  /// LISTEN_FDNAMES).
  static std::shared_ptr<NSXPCListener> initWithMachServiceName(
      const std::shared_ptr<NSString>& service);
  /// Takes a listening Unix stream socket over.
  static std::shared_ptr<NSXPCListener> initWithListeningDescriptor(int descriptor);

  virtual ~NSXPCListener() = default;
  virtual void setDelegate(std::weak_ptr<NSXPCListenerDelegate> delegate) = 0;
  /// Before resume, or without effect.
  virtual void setLimits(const NSXPCListenerLimits& limits) = 0;
  virtual void resume() = 0;
  /// No further connection is offered; those that were accepted live on.
  virtual void invalidate() = 0;
};

/// Connections of this process that have not wholly ended yet: threads and descriptors of the
/// layer. For tests and status.
[[nodiscard]] std::size_t liveConnectionCount();

}  // namespace platform
