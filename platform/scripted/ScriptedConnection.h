// SPDX-License-Identifier: Apache-2.0

// A connection whose peer is the test.
//
// It records the calls it gets, and calls back only when the test says so: each deliver… function
// is one event of the connection's queue and runs on the calling thread. So, as with a real
// connection, no handler, reply or delivery ever runs inside the caller's resume, send or
// invalidate.
//
// What a real connection does not let through, this one does not either: nothing is delivered
// before resume, or after invalidate or the connection's release. An argument of a class that the
// interface does not admit drops its message, or turns its reply into an error (4101). Timing::Late
// tests an event that a queue started just before that point. A message whose arguments cannot be
// encoded, or that comes after the end, is not sent: deliverSendError() says so to its sender.
//
// Threading: any thread; the deliver… functions act as the queue, so only one at a time. No lock is
//   held while they call out.
// Ownership: the platform keeps this object for the test. The NSXPCConnection that the code under
//   test holds is a different object, whose release is recorded. Handlers are held until they are
//   replaced, the invalidation handler has run or the connection is dropped; a request's reply and
//   error handlers until one of them has run.
// Errors: std::out_of_range if there is no such request.
// Order: pending requests fail before the notice of the connection's end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"
#include "platform/scripted/Trace.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/NSXPCInterface.h"
#include "platform/xpc/ResumedConnection.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform {

class ScriptedConnection : public std::enable_shared_from_this<ScriptedConnection> {
 public:
  ScriptedConnection(int number, std::shared_ptr<Trace> trace);

  /// The object for the code under test.
  [[nodiscard]] std::shared_ptr<NSXPCConnection> makeConnection();

  /// 1 for the first connection of a platform.
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool isResumed() const;
  [[nodiscard]] bool isInvalidated() const;
  /// Whether the NSXPCConnection still exists.
  [[nodiscard]] bool isHeld() const;
  /// The number of requests with a reply that have received neither a reply nor an error.
  [[nodiscard]] std::size_t pendingRequests() const;

  enum class Timing {
    InOrder,  ///< only what a connection in this state lets through
    Late,     ///< as if the queue had started it while the connection still let it through
  };

  /// Replies to the oldest pending request. False if the reply did not get through: the connection
  /// has ended and the request is still pending, or the reply is not admitted.
  bool deliverReply(const XPCValues& values, Timing timing = Timing::InOrder);
  /// Replies to the oldest pending request with `error` or null.
  bool deliverReply(const std::shared_ptr<NSError>& error, Timing timing = Timing::InOrder);
  /// Makes the oldest pending request fail.
  void deliverError(const std::shared_ptr<NSError>& error);
  /// Makes the oldest message that could not be sent fail: EINVAL or EMSGSIZE if its arguments
  /// cannot be encoded, 4099 if it has no reply and the connection had ended. False if there is
  /// none.
  bool deliverSendError();
  /// Runs the error handler of the last one-way message.
  void deliverOneWayError(const std::shared_ptr<NSError>& error);
  /// Sends a message from the peer. False if it did not reach the exported object.
  bool deliverMessage(std::string_view selector, const XPCValues& arguments,
                      Timing timing = Timing::InOrder);
  /// Makes pending requests fail (4097), then runs the interruption handler. Returns false and does
  /// nothing if the connection has ended; a late interruption still runs a handler that is kept.
  bool deliverInterruption(Timing timing = Timing::InOrder);
  /// Makes pending requests fail (4099), then runs the invalidation handler, at most once per
  /// connection, and drops both handlers. No handler runs if the connection was dropped without
  /// invalidate, or if it was invalidated and its exported object has resumed another one since,
  /// unless the notice is late. False if the handler did not run.
  bool deliverInvalidation(Timing timing = Timing::InOrder);

  /// Drops all handlers and requests without calling them: the end of the script.
  void discard();

 private:
  class Connection;
  class Sink;
  struct Request {
    std::size_t method = 0;
    XPCReplyHandler reply;
    std::shared_ptr<XPCErrorHandler> error;
  };

  struct UnsentMessage {
    std::shared_ptr<XPCErrorHandler> error;
    std::shared_ptr<NSError> reason;
  };

  void record(std::string name, std::vector<std::string> arguments = {});
  void setExportedInterface(std::shared_ptr<NSXPCInterface> interface);
  void setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface);
  void setExportedObject(XPCExportedObject object);
  void setHandler(std::function<void()>& place, std::function<void()> handler,
                  std::string_view setter);
  void resume();
  void invalidate();
  void dropped();
  std::shared_ptr<void> remoteObjectProxy(const XPCProtocol& protocol, XPCErrorHandler handler);
  void send(const XPCProtocol& protocol, std::size_t method, const XPCValues& arguments,
            XPCReplyHandler reply, const std::shared_ptr<XPCErrorHandler>& error);
  Request takeOldestRequest();
  void failPendingRequests(std::int64_t code);
  bool isLive() const;
  bool mayCallInvalidationHandler(Timing timing) const;
  void leave();

  const int number_;
  const std::shared_ptr<Trace> trace_;

  mutable std::mutex mutex_;
  std::shared_ptr<NSXPCInterface> exportedInterface_;
  std::shared_ptr<NSXPCInterface> remoteInterface_;
  XPCExportedObject exported_;
  std::function<void()> interruptionHandler_;
  std::function<void()> invalidationHandler_;
  xpc::ResumedConnection entry_;
  std::deque<Request> pending_;
  std::deque<UnsentMessage> unsent_;
  std::shared_ptr<XPCErrorHandler> lastOneWayError_;
  bool resumed_ = false;
  bool invalidated_ = false;
  bool held_ = true;
  bool over_ = false;
  bool discarded_ = false;
};

}  // namespace platform
