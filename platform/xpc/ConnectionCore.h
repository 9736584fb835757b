// SPDX-License-Identifier: Apache-2.0

// One connection: its socket, its queue thread and what is pending. NSXPCConnection is a handle to
// it.
//
//   ConnectionCore.cpp      what other threads call: configuration, sending, ending
//   ConnectionQueue.cpp     the queue thread: the next step, connecting, reading, ends and notices
//   ConnectionDelivery.cpp  the queue thread: from a frame to the call that it stands for
//
// Threading: as NSXPCConnection.h. mutex_ covers plain state and non-blocking system calls, never a
//   call-out or the destruction of anything that a caller passed in. Members below "queue thread"
//   belong to that thread alone.
// Ownership: the handle, the proxies and the running queue thread hold the core; reply senders hold
//   it weakly. The core never holds its handle.
// Errors, Order: as NSXPCConnection.h.
// Forks: in a child every call from outside returns before it touches the lock, which a thread that
//   does not exist in the child may hold; ending a connection releases its descriptors. If a
//   handler forks on the queue thread, that thread ends in the child as soon as the handler returns
//   (InForkedChild).
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/foundation/ForkMark.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/Admissions.h"
#include "platform/xpc/BatchedFrames.h"
#include "platform/xpc/ConnectionLife.h"
#include "platform/xpc/Exports.h"
#include "platform/xpc/FrameReceiver.h"
#include "platform/xpc/InterfaceTable.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/ObjectCoder.h"
#include "platform/xpc/Outbox.h"
#include "platform/xpc/PeerIdentity.h"
#include "platform/xpc/PendingRequests.h"
#include "platform/xpc/QueueThread.h"
#include "platform/xpc/ReceiveBuffer.h"
#include "platform/xpc/ResumedConnection.h"
#include "platform/xpc/SendBacklog.h"
#include "platform/xpc/Wire.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform::xpc {

using SharedHandler = std::shared_ptr<std::function<void()>>;

class ConnectionCore : public std::enable_shared_from_this<ConnectionCore> {
 public:
  static std::shared_ptr<ConnectionCore> toService(std::string service);
  /// Takes ownership of the connected socket and of an event descriptor for wake-ups, even if it
  /// throws. Without the descriptor (-1) or the thread, the connection creates its own when it is
  /// resumed, and stalls if that fails.
  static std::shared_ptr<ConnectionCore> accepted(int socket, int wake = -1,
                                                  PreparedThread thread = {});
  ConnectionCore(std::string service, int acceptedSocket);
  /// Call before resume. The place is given back when the stream has ended.
  void setPlace(std::unique_ptr<Admissions::Place> place);
  ConnectionCore(const ConnectionCore&) = delete;
  ConnectionCore& operator=(const ConnectionCore&) = delete;
  ~ConnectionCore();

  void setExportedTable(SharedTable table);
  void setExportedObject(XPCExportedObject object);
  void setRemoteTable(SharedTable table);
  [[nodiscard]] SharedTable remoteTable() const;
  void setInterruptionHandler(std::function<void()> handler);
  void setInvalidationHandler(std::function<void()> handler);

  void resume();
  void invalidate();
  /// The handle no longer exists: end quietly, unless an invalidation is already under way.
  void abandon();

  void send(const SharedTable& remote, std::size_t method, const XPCValues& arguments,
            XPCReplyHandler reply, const SharedErrorHandler& errorHandler);
  /// A message of a method that has no reply.
  void sendMessage(const SharedTable& remote, std::size_t method,
                   std::span<const XPCArgumentRef> arguments,
                   const SharedErrorHandler& errorHandler);
  /// Answers request `id` of stream number `stream`; null means that there will be no answer.
  void answer(std::uint64_t stream, std::uint64_t id, const std::vector<ArgumentRule>& rules,
              const XPCValues* values);
  /// There was no memory for an answer: the peer, which waits for it, sees the stream end instead.
  void endUnanswered(std::uint64_t stream);

  /// Sends the messages of a batch.
  void sendTogether(const BatchedFrames& batch);
  /// Tells the sender of a message that has no encoding.
  void failUnencodable(const EncodingError& error, XPCReplyHandler reply,
                       const SharedErrorHandler& errorHandler);
  [[nodiscard]] std::size_t unsentBytes() const;
  [[nodiscard]] std::size_t unsentBytesOfUser() const;
  bool waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit);
  [[nodiscard]] std::uint64_t messagesDropped() const;
  void callOnQueue(std::function<void()> action);
  [[nodiscard]] PeerIdentity peer() const;

  /// Connections with a running thread or an open socket.
  static std::size_t liveCount();

 private:
  /// Thrown on the queue thread to leave everything after a handler returned in a child.
  struct InForkedChild {};
  using Clock = std::chrono::steady_clock;

  using Phase = ConnectionLife::Phase;
  using Event = ConnectionLife::Event;
  using Handlers = Outbox::Handlers;
  using Calls = std::vector<std::function<void()>>;

  enum class Step { Again, FinishLocally, Connect, Serve, Sleep, Exit };
  enum class StreamEnd { No, Farewell, Breach, Lost };

  // Any thread. "Locked" in a name: the caller holds mutex_.
  void replaceHandler(SharedHandler& slot, std::function<void()> handler);
  void putLocked(std::span<const std::uint8_t> frame, bool oneWay,
                 const SharedErrorHandler& errorHandler);
  bool putBatchLocked(const BatchedFrames& batch);
  /// Whether a request of stream number `stream` can still be answered.
  [[nodiscard]] bool awaitsAnswerLocked(std::uint64_t stream) const;
  template <class Arguments>
  void sendAny(const SharedTable& remote, std::size_t method, const Arguments& arguments,
               XPCReplyHandler reply, const SharedErrorHandler& errorHandler);
  void openStreamLocked();
  void endStreamLocallyLocked(Handlers& released);
  /// Like PendingRequests::fail.
  void failLocked(XPCReplyHandler& reply, const SharedErrorHandler& errorHandler,
                  std::shared_ptr<NSError> error);
  void pokeLocked();
  bool startThreadLocked();
  static void* threadMain(void* core);
  void releaseTokenLocked();
  void releaseInherited();
  bool waitOnQueueThread(std::size_t bytes, Clock::time_point deadline);

  // Queue thread: ConnectionQueue.cpp
  void run();
  Step nextStep();
  void runFailures();
  void runCalls();
  void connect();
  /// False if there is no memory for the hello.
  [[nodiscard]] bool adoptSocket(int socket);
  void giveUpConnecting(const std::string& why);
  void serve();
  /// How long it may wait for input, in milliseconds.
  [[nodiscard]] int idleTimeout() const;
  [[nodiscard]] bool isHelloOverdue() const;
  void deliverOrBreach();
  bool readOnce();
  [[nodiscard]] bool hasBacklog() const;
  void letReadsWait();
  void flush();
  [[nodiscard]] bool wait(int timeoutMilliseconds, bool withSocket);
  void drainWake();
  void pause(std::chrono::milliseconds duration);
  bool endsLocally() const;
  void endStream();
  void failEverythingPending(std::int64_t code, const char* what, bool keepUnsent);
  void callInterruptionHandler();
  struct EndHandlers {
    SharedHandler interruption;  ///< only to be released
    SharedHandler invalidation;
    Calls calls;  ///< likewise
  };
  void callInvalidationHandler();
  bool takeEndHandlers(EndHandlers& handlers);
  void finishLocally();
  void connectToFlush();
  void linger();
  void closeSocket();
  [[nodiscard]] std::shared_ptr<NSError> makeError(std::int64_t code, const char* what) const;
  /// The same, but falls back to an error without a text when memory is short.
  [[nodiscard]] std::shared_ptr<NSError> makeErrorAnyway(std::int64_t code, const char* what) const;
  [[nodiscard]] std::chrono::milliseconds pauseBeforeNotice() const;
  template <class... Parts>
  void log(const Parts&... parts) const;
  void logText(const std::string& text) const;

  // Queue thread: ConnectionDelivery.cpp
  bool deliverFrames();
  bool handleFrame(const Frame& frame);
  bool handleHello();
  bool handleCall(const Frame& frame);
  void invoke(std::size_t method, std::uint64_t id);
  bool handleReply(std::uint64_t id);
  bool handleReplyDropped(std::uint64_t id);
  [[nodiscard]] PendingRequests::Requests::node_type takePending(std::uint64_t id);
  void answerDropped(std::uint64_t id);
  void dropWithoutObject(std::size_t method, std::uint64_t id);
  void logMissedSinceGone();
  bool breach(std::string_view what);
  template <class Call>
  void guarded(const char* what, const Call& call) const;

  const std::string service_;  ///< empty for an accepted connection
  const bool accepted_;
  const ForkMark mark_;

  mutable std::mutex mutex_;
  ConnectionLife life_;
  Exports exports_;
  SharedTable remoteTable_;
  SharedHandler interruptionHandler_;
  SharedHandler invalidationHandler_;
  bool threadRuns_ = false;
  PreparedThread thread_;                          ///< until it is started
  std::shared_ptr<ConnectionCore> keptForThread_;  ///< until the new thread has taken it
  bool countsAsLive_ = false;
  std::thread::id queueThread_;
  int socket_ = -1;
  int wake_ = -1;
  Outbox outbox_;
  PendingRequests pending_;
  Calls calls_;  ///< to be made by the queue thread
  PeerIdentity peer_;
  std::unique_ptr<Admissions::Place> place_;  ///< null for a connection to a service
  /// The deadline for the peer's hello; set at resume, for the queue thread.
  std::optional<Clock::time_point> helloDeadline_;

  std::atomic<bool> attention_{false};
  std::atomic<bool> stopDelivering_{false};

  // queue thread
  ReceiveBuffer buffer_;
  FrameReceiver receiver_;
  bool readsMayWait_ = false;
  bool expectsMore_ = false;  ///< the last read returned data
  StreamEnd streamEnd_ = StreamEnd::No;
  XPCValues values_;
  unsigned connectAttempts_ = 0;
  Clock::time_point connectStarted_;
  ResumedConnection resumedEntry_;
};

/// An empty string for null.
std::string nameOf(const SharedTable& table);

/// An NSError of NSCocoaErrorDomain or, with `posix`, NSPOSIXErrorDomain that has `what` as its
/// NSDebugDescription.
std::shared_ptr<NSError> connectionError(bool posix, std::int64_t code, const std::string& what);

/// An error with one of the connection's codes but no text, created with the first connection: for
/// use when memory is short.
const std::shared_ptr<NSError>& spareError(std::int64_t code);

}  // namespace platform::xpc
