// A connection to a named service, or one that a listener accepted.
//
// States: inactive (made, not resumed), live, interrupted (live, without a stream until the next
//   message), invalid (for good). Interruption means that the peer ended without a word, as a
//   process that crashes does: the connection object stays usable. Invalidation means that this
//   connection is over: local invalidate, an unknown name, the peer's farewell, a breach of the
//   protocol. A connection that a listener accepted cannot be made again, so it knows no
//   interruption: it ends by invalidation.
// Threading: every method may be called from any thread and none waits, but for
//   waitUntilUnsentBelow. Everything that the connection calls (exported methods, replies, error
//   handlers, both handlers) runs on its one private serial queue, which is the thread that reads
//   the socket: one at a time, in order, and never inside the caller's resume, invalidate or send.
//   No lock is held then.
// Ownership: the exported object is held weakly, strongly only while one delivery runs. Handlers
//   are held until they are replaced or the invalidation handler has run. Dropping the last
//   reference without invalidate ends the connection quietly: pending requests get their error
//   handlers, no handler runs, the peer sees the stream end without a farewell. Messages for an
//   exported object that has gone are dropped; how many is logged unless this end ends the
//   connection.
// Errors: domain NSCocoaErrorDomain; 4097 interrupted, 4099 invalid, 4101 reply not admitted or
//   dropped unanswered. A message that could not even be queued: domain NSPOSIXErrorDomain; EINVAL
//   an argument that has no encoding, EMSGSIZE larger than a frame may be, ENOBUFS the peer does
//   not read and the backlog is full. For a message with a reply exactly one of reply and error
//   handler runs, once. A shortage (memory, descriptors, a service too busy to let anybody in) is
//   waited out for some seconds; then the connection is over, as by any other invalidation. A
//   handler or exported method that throws costs one log line, nothing else.
// Order: what was sent before invalidate reaches the peer, in order, if it takes it within 2 s.
//   Error handlers of pending requests run before the interruption or invalidation handler; the
//   invalidation handler runs once, last, also when the connection was never resumed. A report
//   about a connection that was invalidated locally is dropped when another connection of the same
//   exported object has been resumed since and stands: its receiver could not tell them apart.
//   Connections of one object that were live at the same time are each reported.
// Forks: in a child of the process that made it a connection is inert: it sends, calls and waits
// for
//   nothing, and its end closes the child's copies of its descriptors.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/ProviderSlot.h"
#include "platform/xpc/NSXPCInterface.h"

namespace platform {

inline constexpr std::int64_t NSXPCConnectionInterrupted = 4097;
inline constexpr std::int64_t NSXPCConnectionInvalid = 4099;
inline constexpr std::int64_t NSXPCConnectionReplyInvalid = 4101;

/// A connection keeps at most this many unsent bytes; a message that does not fit any more is
/// dropped and counted.
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
/// Threading: one thread at a time, its proxies included. Ownership: keeps the connection's inner
/// part, as a proxy does, but not the connection. Order: they go out, in order, when send() is
/// called; what the connection sends by itself meanwhile does not wait for them. What was not sent
/// is forgotten with the batch.
class XPCMessageBatch {
 public:
  virtual ~XPCMessageBatch() = default;
  /// A proxy whose messages wait in the batch; as remoteObjectProxyWithErrorHandler otherwise. A
  /// message that wants a reply cannot wait: it fails (NSPOSIXErrorDomain, EINVAL).
  template <class P>
  // NOLINTNEXTLINE(performance-unnecessary-value-param): moved in a call that depends on P
  std::shared_ptr<P> proxyWithErrorHandler(XPCErrorHandler handler) {
    return std::static_pointer_cast<P>(proxy(P::protocol(), std::move(handler)));
  }
  /// Hands over what waits, in one write if the socket takes it. The batch is empty then.
  virtual void send() = 0;

 protected:
  virtual std::shared_ptr<void> proxy(const XPCProtocol& protocol, XPCErrorHandler handler) = 0;
};

class NSXPCConnection {
 public:
  /// Starts nothing and never fails for want of a service. Null only on a scripted platform that
  /// was told so.
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

  /// Null when no remote interface is set or it is not of `P`. The error handler may be called more
  /// than once over the life of the proxy: once for each message that fails.
  template <class P>
  // The check does not see the move in a call that depends on P.
  // NOLINTNEXTLINE(performance-unnecessary-value-param)
  std::shared_ptr<P> remoteObjectProxyWithErrorHandler(XPCErrorHandler handler) {
    return std::static_pointer_cast<P>(remoteObjectProxy(P::protocol(), std::move(handler)));
  }

  /// The peer as the kernel names it, or -1 while there is none. Of a service's endpoint: who made
  /// it.
  [[nodiscard]] virtual uid_t effectiveUserIdentifier() const = 0;
  [[nodiscard]] virtual pid_t processIdentifier() const = 0;
  /// A descriptor of the peer's process where the kernel hands one out with the socket, else -1. It
  /// stays the connection's.
  [[nodiscard]] virtual int processDescriptor() const { return -1; }

  /// Bytes of messages that wait here because the peer's socket is full. They are flushed as soon
  /// as it takes more.
  [[nodiscard]] virtual std::size_t unsentBytes() const { return 0; }
  /// The same of all connections of the peer's user that the same listener let in, this one
  /// included: what NSXPCListenerLimits::unsentBytesOfUser bounds. Of a connection to a service its
  /// own.
  [[nodiscard]] virtual std::size_t unsentBytesOfUser() const { return unsentBytes(); }
  /// Waits until fewer than `bytes` wait unsent (at least 1 is assumed), at most for `limit`;
  /// whether they are. A connection that has ended has none.
  virtual bool waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) {
    return bytes > 0 || limit.count() >= 0;
  }
  /// Messages that were sent here and thrown away, since the connection was made: the backlog had
  /// reached kXPCUnsentLimit or the user's limit, or the stream ended before they were written.
  [[nodiscard]] virtual std::uint64_t messagesDropped() const { return 0; }
  /// Has `action` called on the connection's queue: once, between two deliveries, in the order of
  /// these calls, and not inside this one. An end that comes before it drops it. A connection
  /// without a queue of its own calls it here and now.
  virtual void callOnQueue(std::function<void()> action) {
    const auto call = std::move(action);
    call();
  }
  /// For messages that are to go out together. Null for a connection that knows no batches.
  [[nodiscard]] virtual std::shared_ptr<XPCMessageBatch> makeBatch() { return nullptr; }

 protected:
  virtual void setExportedObject(XPCExportedObject object) = 0;
  virtual std::shared_ptr<void> remoteObjectProxy(const XPCProtocol& protocol,
                                                  XPCErrorHandler handler) = 0;
};

/// Makes interfaces and connections: the real layer's or a scripted one's.
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
