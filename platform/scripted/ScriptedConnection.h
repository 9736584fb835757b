// A connection whose other end is the test.
//
// It records what is done to it, and calls back only when the test says so: each deliver… function
// stands for one event of the connection's queue and runs it on the calling thread. So, as with a
// real connection, no handler, reply or delivery ever runs inside the caller's resume, send or
// invalidate.
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

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"
#include "platform/scripted/Trace.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform {

class ScriptedConnection : public std::enable_shared_from_this<ScriptedConnection> {
 public:
  /// `isSuperseded` says whether a newer connection of the same exported object has been resumed
  /// since.
  using SupersededQuestion = std::function<bool(const ScriptedConnection&)>;

  ScriptedConnection(int number, std::shared_ptr<Trace> trace, SupersededQuestion isSuperseded);

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
  /// The exported object, null once it is gone.
  [[nodiscard]] std::shared_ptr<void> exportedObject() const;

  /// The oldest pending request is answered.
  void deliverReply(const XPCValues& values);
  /// The oldest pending request is answered with `error`, or with null.
  void deliverReply(const std::shared_ptr<NSError>& error);
  /// The oldest pending request fails.
  void deliverError(const std::shared_ptr<NSError>& error);
  /// The error handler of the last one-way message runs.
  void deliverOneWayError(const std::shared_ptr<NSError>& error);
  /// The peer sends a message. False when the exported object is gone.
  bool deliverMessage(std::string_view selector, const XPCValues& arguments);
  /// Pending requests fail (4097), then the interruption handler runs.
  void deliverInterruption();
  /// Pending requests fail (4099), then the invalidation handler runs, once in the connection's
  /// life, and both handlers are dropped. No handler runs for a connection that was dropped without
  /// invalidate, nor for one that was invalidated and whose exported object has a newer, resumed
  /// connection. False when the handler did not run.
  bool deliverInvalidation();

  /// Forgets every handler and request, calling none: the end of the script.
  void discard();

 private:
  class Connection;
  class Sink;
  struct Request {
    XPCReplyHandler reply;
    std::shared_ptr<XPCErrorHandler> error;
  };

  void record(const std::string& what);
  void setExportedInterface(const std::shared_ptr<NSXPCInterface>& interface);
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
  bool mayReportInvalidation() const;

  const int number_;
  const std::shared_ptr<Trace> trace_;
  const SupersededQuestion isSuperseded_;

  mutable std::mutex mutex_;
  std::shared_ptr<NSXPCInterface> remoteInterface_;
  XPCExportedObject exported_;
  std::function<void()> interruptionHandler_;
  std::function<void()> invalidationHandler_;
  std::deque<Request> pending_;
  std::shared_ptr<XPCErrorHandler> lastOneWayError_;
  bool resumed_ = false;
  bool invalidated_ = false;
  bool held_ = true;
  bool over_ = false;
  bool discarded_ = false;
};

}  // namespace platform
