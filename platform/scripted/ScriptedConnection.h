// A connection whose other end is the test.
//
// It records what is done to it, and calls back only when the test says so: each deliver… function
// stands for one event of the connection's queue and runs it on the calling thread. So, as with a
// real connection, no handler, reply or delivery ever runs inside the caller's resume, send or
// invalidate.
//
// What a real connection does not let through, this one does not either: nothing is delivered
// before resume, nor after invalidate or the connection's release; an argument that the interface's
// classes do not admit drops its message, or makes its reply an error (4101). A queue may, however,
// have begun something just before that, and a test may want to see what comes of it: Timing::Late.
//
// Threading: any thread; the deliver… functions are the queue, so one of them at a time. No lock is
//   held while they call.
// Ownership: the platform keeps this object for the test; the NSXPCConnection that the code under
//   test holds is another one, whose release is recorded. Handlers are held until they are
//   replaced, until the invalidation handler has run or until the connection is dropped; a
//   request's reply and error handler until one of them has run.
// Errors: std::out_of_range for a request that is not there.
// Order: a request's end comes before the end of the connection that causes it.
#pragma once

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
#include "platform/xpc/StaleReports.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform {

class ScriptedConnection : public std::enable_shared_from_this<ScriptedConnection> {
 public:
  ScriptedConnection(int number, std::shared_ptr<Trace> trace);

  /// What the code under test holds.
  [[nodiscard]] std::shared_ptr<NSXPCConnection> makeConnection();

  /// 1 for the first connection of a platform.
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool isResumed() const;
  [[nodiscard]] bool isInvalidated() const;
  /// Whether the NSXPCConnection is still held by somebody.
  [[nodiscard]] bool isHeld() const;
  /// Requests with a reply that have had neither reply nor error.
  [[nodiscard]] std::size_t pendingRequests() const;

  enum class Timing {
    InOrder,  ///< only what a connection in this state lets through
    Late,     ///< as if the queue had begun it when the connection still let it through
  };

  /// The oldest pending request is answered. False when the answer did not come through: the
  /// connection is over, with the request still pending, or the answer is not admitted.
  bool deliverReply(const XPCValues& values, Timing timing = Timing::InOrder);
  /// The oldest pending request is answered with `error`, or with null.
  bool deliverReply(const std::shared_ptr<NSError>& error, Timing timing = Timing::InOrder);
  /// The oldest pending request fails.
  void deliverError(const std::shared_ptr<NSError>& error);
  /// The error handler of the last one-way message runs.
  void deliverOneWayError(const std::shared_ptr<NSError>& error);
  /// The peer sends a message. False when it did not reach the exported object.
  bool deliverMessage(std::string_view selector, const XPCValues& arguments,
                      Timing timing = Timing::InOrder);
  /// Pending requests fail (4097), then the interruption handler runs. False, and nothing of this,
  /// when the connection is over. Late, the handler runs as long as it is kept.
  bool deliverInterruption(Timing timing = Timing::InOrder);
  /// Pending requests fail (4099), then the invalidation handler runs, once in the connection's
  /// life, and both handlers are dropped. No handler runs for a connection that was dropped without
  /// invalidate, nor for one that was invalidated and whose exported object has resumed another one
  /// since, unless the report is late. False when the handler did not run.
  bool deliverInvalidation(Timing timing = Timing::InOrder);

  /// Forgets every handler and request, calling none: the end of the script.
  void discard();

 private:
  class Connection;
  class Sink;
  struct Request {
    std::size_t method = 0;
    XPCReplyHandler reply;
    std::shared_ptr<XPCErrorHandler> error;
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
  bool mayReportInvalidation(Timing timing) const;
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
  std::shared_ptr<XPCErrorHandler> lastOneWayError_;
  bool resumed_ = false;
  bool invalidated_ = false;
  bool held_ = true;
  bool over_ = false;
  bool discarded_ = false;
};

}  // namespace platform
