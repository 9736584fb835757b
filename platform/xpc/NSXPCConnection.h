// SPDX-License-Identifier: Apache-2.0

// A connection to a named service, or one that a listener accepted.
//
// States: inactive (created, not resumed), live, interrupted (live, but without a stream until the
//   next message), invalid (permanently). An interruption means that the peer went away without a
//   farewell, as a process that crashes does; the connection object stays usable. An invalidation
//   means that this connection is over: local invalidate, an unknown name, the peer's farewell, a
//   breach of the protocol. An accepted connection cannot reconnect, so it is never interrupted: it
//   ends by invalidation.
// Threading: every method may be called from any thread, and only waitUntilUnsentBelow blocks.
//   Everything that the connection calls (exported methods, replies, error handlers, both handlers)
//   runs on its one private serial queue, which is the thread that reads the socket: one at a time,
//   in order, and never inside the caller's resume, invalidate or send. No lock is held during such
//   a call.
// Ownership: the exported object is held weakly, and strongly only during a delivery. Handlers are
//   held until they are replaced or the invalidation handler has run. Dropping the last reference
//   without invalidate ends the connection quietly: pending requests get their error handlers,
//   neither handler runs, and the peer sees the stream end without a farewell. Messages for an
//   exported object that no longer exists are dropped, and their number is logged unless this end
//   closes the connection.
// Errors: domain NSCocoaErrorDomain: 4097 interrupted, 4099 invalid, 4101 the reply was not
//   admitted or the request was dropped. For a message that could not even be queued, domain
//   NSPOSIXErrorDomain: EINVAL an argument has no encoding, EMSGSIZE the frame would be too large,
//   ENOBUFS the peer does not read and the backlog is full. A message with a reply calls exactly
//   one of reply and error handler, once. A shortage (memory, descriptors, a service too busy to
//   accept) is retried for some seconds and then invalidates the connection. An exception from a
//   handler or exported method costs one log line, nothing else.
// Order: what was sent before invalidate reaches the peer, in order, if the peer reads it within
//   two seconds. Error handlers of pending requests run before the interruption or invalidation
//   handler; the invalidation handler runs once, last, even if the connection was never resumed.
//   The notice about a locally invalidated connection is dropped if another connection of the same
//   exported object has been resumed since and still exists: its receiver could not tell them
//   apart. Connections of one object that were live at the same time each get their notice.
// Forks: in a forked child an inherited connection is inert: it sends nothing, calls nothing and
//   waits for nothing, and releasing it closes only the child's copies of its descriptors.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/ProviderSlot.h"
#include "platform/xpc/NSXPCInterface.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform {

inline constexpr std::int64_t NSXPCConnectionInterrupted = 4097;
inline constexpr std::int64_t NSXPCConnectionInvalid = 4099;
inline constexpr std::int64_t NSXPCConnectionReplyInvalid = 4101;

/// The limit on a connection's unsent bytes; a message that would exceed it is dropped and counted.
inline constexpr std::size_t kXPCUnsentLimit = std::size_t{32} << 20;

using NSXPCConnectionOptions = std::uint64_t;

/// An exported object as a connection holds it: weakly, with the protocol whose C++ class `object`
/// points to.
struct XPCExportedObject {
  std::weak_ptr<void> object;
  const XPCProtocol* protocol = nullptr;
};

/// Messages that are encoded when they are sent and go out together.
///
/// Threading: one thread at a time, its proxies included.
/// Ownership: keeps the connection's core alive, as a proxy does, but not the connection.
/// Order: the messages go out in order when send() is called; what the connection itself sends
///   meanwhile does not wait for them. Unsent messages are discarded with the batch.
class XPCMessageBatch {
 public:
  virtual ~XPCMessageBatch() = default;
  /// A proxy whose messages wait in the batch; otherwise like remoteObjectProxyWithErrorHandler. A
  /// message that wants a reply cannot wait: it fails (NSPOSIXErrorDomain, EINVAL).
  template <class P>
  // NOLINTNEXTLINE(performance-unnecessary-value-param): moved in a call that depends on P
  std::shared_ptr<P> proxyWithErrorHandler(XPCErrorHandler handler) {
    return std::static_pointer_cast<P>(proxy(P::protocol(), std::move(handler)));
  }
  /// Sends what waits, in one write if the socket takes it. The batch is empty afterwards.
  virtual void send() = 0;

 protected:
  virtual std::shared_ptr<void> proxy(const XPCProtocol& protocol, XPCErrorHandler handler) = 0;
};

class NSXPCConnection {
 public:
  /// Starts nothing and never fails because of a missing service. Null only on a scripted platform
  /// told to return null.
  static std::shared_ptr<NSXPCConnection> initWithMachServiceName_options(
      const std::shared_ptr<NSString>& name, NSXPCConnectionOptions options);
  virtual ~NSXPCConnection() = default;

  virtual void setExportedInterface(std::shared_ptr<NSXPCInterface> interface) = 0;
  /// `P` is the protocol class of the exported interface:
  /// setExportedObject<WLHIDEventRouterClientProtocol>(client).
  template <class P>
  void setExportedObject(const std::shared_ptr<P>& object) {
    setExportedObject(XPCExportedObject{object, &P::protocol()});
  }
  virtual void setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) = 0;
  virtual void setInterruptionHandler(std::function<void()> handler) = 0;
  virtual void setInvalidationHandler(std::function<void()> handler) = 0;
  virtual void resume() = 0;
  virtual void invalidate() = 0;

  /// Null if no remote interface is set or it is not that of `P`. The error handler may be called
  /// several times over the life of the proxy: once for each message that fails.
  template <class P>
  // The check does not see the move in a call that depends on P.
  // NOLINTNEXTLINE(performance-unnecessary-value-param)
  std::shared_ptr<P> remoteObjectProxyWithErrorHandler(XPCErrorHandler handler) {
    return std::static_pointer_cast<P>(remoteObjectProxy(P::protocol(), std::move(handler)));
  }

  /// The peer as the kernel names it, or -1 while there is no stream. For a connection to a
  /// service, the process that created the endpoint.
  [[nodiscard]] virtual uid_t effectiveUserIdentifier() const = 0;
  [[nodiscard]] virtual pid_t processIdentifier() const = 0;
  /// A process descriptor of the peer if the kernel provides one with the socket, else -1. The
  /// connection keeps ownership.
  [[nodiscard]] virtual int processDescriptor() const { return -1; }

  /// Bytes of messages that wait here because the peer's socket is full. They are flushed as soon
  /// as it accepts more.
  [[nodiscard]] virtual std::size_t unsentBytes() const { return 0; }
  /// The total over all connections of the peer's user that the same listener accepted, this one
  /// included: what NSXPCListenerLimits::unsentBytesOfUser bounds. For a connection to a service,
  /// its own bytes only.
  [[nodiscard]] virtual std::size_t unsentBytesOfUser() const { return unsentBytes(); }
  /// Waits at most `limit` until fewer than `bytes` (at least 1 is assumed) are unsent, and returns
  /// whether they are. A connection that has ended has no unsent bytes.
  virtual bool waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) {
    return bytes > 0 || limit.count() >= 0;
  }
  /// Messages sent here but discarded since the connection was created: the backlog had reached
  /// kXPCUnsentLimit or the user's limit, or the stream ended before they were written.
  [[nodiscard]] virtual std::uint64_t messagesDropped() const { return 0; }
  /// Calls `action` on the connection's queue: once, between two deliveries, in the order of these
  /// calls, and never inside this one. If the connection ends first, `action` is dropped. A
  /// connection without a queue of its own calls it immediately.
  virtual void callOnQueue(std::function<void()> action) {
    const auto call = std::move(action);
    call();
  }
  /// For messages that should go out together. Null if the connection does not support batches.
  [[nodiscard]] virtual std::shared_ptr<XPCMessageBatch> makeBatch() { return nullptr; }

 protected:
  virtual void setExportedObject(XPCExportedObject object) = 0;
  virtual std::shared_ptr<void> remoteObjectProxy(const XPCProtocol& protocol,
                                                  XPCErrorHandler handler) = 0;
};

/// Creates interfaces and connections: the real layer or a scripted one.
class XPCProvider {
 public:
  virtual ~XPCProvider() = default;
  virtual std::shared_ptr<NSXPCInterface> interfaceWithProtocol(const XPCProtocol& protocol) = 0;
  virtual std::shared_ptr<NSXPCConnection> connection(const std::shared_ptr<NSString>& name,
                                                      NSXPCConnectionOptions options) = 0;
};

/// Never destroyed.
ProviderSlot<XPCProvider>& xpcProvider();

}  // namespace platform
