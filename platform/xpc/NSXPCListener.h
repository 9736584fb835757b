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

class NSXPCListenerDelegate {
 public:
  virtual ~NSXPCListenerDelegate() = default;
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
  virtual void resume() = 0;
  /// No further connection is offered; those that were accepted live on.
  virtual void invalidate() = 0;
};

/// Connections of this process that have not wholly ended yet: threads and descriptors of the
/// layer. For tests and status.
[[nodiscard]] std::size_t liveConnectionCount();

}  // namespace platform
