// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/foundation/NSLog.h"
#include "platform/foundation/PrintableText.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/xpc/ConnectionCore.h"
#include "platform/xpc/Guarded.h"
#include "platform/xpc/Pacing.h"

namespace platform::xpc {
namespace {

constexpr std::chrono::seconds kLongestLinger{2};
constexpr int kTrimAfterMilliseconds = 1000;
constexpr int kForever = -1;
constexpr suseconds_t kReadWaitMicroseconds = 1000;

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1'000'000));
}

}  // namespace

// -------------------------------------------------------------------------------------------------
// The next step

void ConnectionCore::run() {
  {
    const std::lock_guard lock(mutex_);
    queueThread_ = std::this_thread::get_id();
  }
  for (;;) {
    // Before the state is examined, so that a later change wakes the thread again.
    attention_.store(false);
    runFailures();
    runCalls();
    switch (nextStep()) {
      case Step::Again:
        break;
      case Step::FinishLocally:
        finishLocally();
        break;
      case Step::Connect:
        connect();
        break;
      case Step::Serve:
        serve();
        break;
      case Step::Sleep:
        static_cast<void>(wait(kForever, false));
        break;
      case Step::Exit:
        return;
    }
  }
}

ConnectionCore::Step ConnectionCore::nextStep() {
  const std::lock_guard lock(mutex_);
  if (pending_.hasFailures()) return Step::Again;
  if (life_.endsLocally()) return Step::FinishLocally;
  if (!life_.isActive()) {
    releaseTokenLocked();
    return Step::Exit;
  }
  if (!calls_.empty()) return Step::Again;
  if (socket_ >= 0) return Step::Serve;
  return outbox_.empty() ? Step::Sleep : Step::Connect;
}

void ConnectionCore::runFailures() {
  for (;;) {
    std::vector<PendingRequests::Failure> due;
    {
      const std::lock_guard lock(mutex_);
      due = pending_.takeFailures();
    }
    if (due.empty()) return;
    for (auto& failure : due) {
      if (failure.errorHandler && *failure.errorHandler) {
        guarded("an error handler", [&] { (*failure.errorHandler)(failure.error); });
      }
      failure = {};
    }
  }
}

void ConnectionCore::runCalls() {
  Calls due;
  {
    const std::lock_guard lock(mutex_);
    if (life_.isActive()) due.swap(calls_);
  }
  for (auto& call : due) {
    if (!stopDelivering_.load(std::memory_order_relaxed)) guarded("a call on the queue", call);
    call = nullptr;
  }
}

/// Sleeps until the thread is needed, the socket (if `withSocket`) is ready, or the time is up;
/// returns false in the last case.
bool ConnectionCore::wait(int timeoutMilliseconds, bool withSocket) {
  std::array<pollfd, 2> watched{{{wake_, POLLIN, 0}, {-1, POLLIN, 0}}};
  if (withSocket) {
    const std::lock_guard lock(mutex_);
    watched[1].fd = socket_;
    if (outbox_.wantsToWrite()) watched[1].events |= POLLOUT;
  }
  if (::poll(watched.data(), watched.size(), timeoutMilliseconds) == 0) return false;
  if (watched[0].revents != 0) drainWake();
  if ((watched[1].revents & POLLOUT) != 0) flush();
  return true;
}

void ConnectionCore::drainWake() {
  eventfd_t count = 0;
  ::eventfd_read(wake_, &count);
}

void ConnectionCore::flush() {
  Handlers released;
  const std::lock_guard lock(mutex_);
  outbox_.flush(released);
}

// -------------------------------------------------------------------------------------------------
// The stream

void ConnectionCore::connect() {
  if (connectAttempts_ == 0) connectStarted_ = Clock::now();
  ServiceConnectResult result;
  result.outcome = ServiceConnectResult::Outcome::TryAgain;  // if it throws
  result.reason = "out of memory";
  guarded("connecting", [&] { result = serviceEndpoints().load()->connectToService(service_); });
  if (result.outcome == ServiceConnectResult::Outcome::Connected) {
    connectAttempts_ = 0;
    if (!adoptSocket(result.descriptor)) giveUpConnecting("out of memory");
    return;
  }
  if (result.outcome == ServiceConnectResult::Outcome::TryAgain &&
      ++connectAttempts_ < attemptsWhileShort.load()) {
    return pause(pauseBeforeAttempt(connectAttempts_));
  }
  giveUpConnecting(result.reason.empty() ? "unknown name" : result.reason);
}

void ConnectionCore::giveUpConnecting(const std::string& why) {
  log("no connection: ", why);
  streamEnd_ = StreamEnd::Breach;
  endStream();
}

bool ConnectionCore::adoptSocket(int socket) {
  {
    const std::lock_guard lock(mutex_);
    socket_ = socket;
    peer_ = peerOfSocket(socket);
    streamEnd_ = StreamEnd::No;
  }
  const bool greets = retryWhileShort([this] {
    const std::lock_guard lock(mutex_);
    if (!outbox_.isOpen()) openStreamLocked();
  });
  if (greets) flush();
  return greets;
}

void ConnectionCore::serve() {
  {
    const std::lock_guard lock(mutex_);
    if (outbox_.hasLostAnswer()) streamEnd_ = StreamEnd::Breach;
  }
  if (!readsMayWait_) letReadsWait();
  if (streamEnd_ == StreamEnd::Breach) log("breach: replies to the peer can no longer be queued");
  while (streamEnd_ == StreamEnd::No) {
    if (readOnce()) {
      deliverOrBreach();
    } else if (streamEnd_ == StreamEnd::No && !attention_.load(std::memory_order_relaxed)) {
      if (!wait(idleTimeout(), true)) buffer_.trim();
    }
    if (isHelloOverdue()) breach("no hello in time");
    if (streamEnd_ == StreamEnd::No && attention_.load(std::memory_order_relaxed)) return;
  }
  if (!stopDelivering_.load(std::memory_order_relaxed)) endStream();
}

int ConnectionCore::idleTimeout() const {
  if (!receiver_.sawHello() && helloDeadline_) return millisecondsUntil(*helloDeadline_);
  return buffer_.holdsIdleMemory() ? kTrimAfterMilliseconds : kForever;
}

bool ConnectionCore::isHelloOverdue() const {
  return !receiver_.sawHello() && helloDeadline_ && streamEnd_ == StreamEnd::No &&
         Clock::now() >= *helloDeadline_;
}

/// If a frame needs more memory than there is, only its own connection ends.
void ConnectionCore::deliverOrBreach() {
  try {
    deliverFrames();
  } catch (const std::exception& exception) {
    breach(exception.what());
  }
}

/// Returns whether the buffer has new bytes. After one message the next usually comes soon, so the
/// read itself waits briefly for it, which saves a busy connection the poll. A local end wakes it
/// at once; anything else for the thread waits that long.
bool ConnectionCore::readOnce() {
  const bool waits = std::exchange(expectsMore_, false) && readsMayWait_ && !hasBacklog();
  std::span<std::uint8_t> room;
  if (!retryWhileShort([&] { room = buffer_.room(receiver_.frameSize()); }))
    return breach("out of memory for what the peer sends");
  const ssize_t count = ::recv(socket_, room.data(), room.size(), waits ? 0 : MSG_DONTWAIT);
  if (count > 0) {
    buffer_.filled(static_cast<std::size_t>(count));
    expectsMore_ = true;
    return true;
  }
  if (count < 0 && errno == EINTR) return false;
  if (count < 0 && (errno == EAGAIN || errno == ENOMEM)) {
    const std::lock_guard lock(mutex_);
    if (outbox_.isBroken()) streamEnd_ = StreamEnd::Lost;
    return false;
  }
  streamEnd_ = StreamEnd::Lost;
  return false;
}

bool ConnectionCore::hasBacklog() const {
  const std::lock_guard lock(mutex_);
  return !outbox_.empty() || pending_.hasFailures();
}

/// Sets how long a read may block. The socket blocks for reading only; every write is made
/// non-blocking by its flags.
void ConnectionCore::letReadsWait() {
  const int flags = ::fcntl(socket_, F_GETFL);
  const timeval moment{0, kReadWaitMicroseconds};
  if (flags < 0 || ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &moment, sizeof moment) != 0)
    return;
  readsMayWait_ = ::fcntl(socket_, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

void ConnectionCore::closeSocket() {
  int socket = -1;
  int process = -1;
  std::unique_ptr<Admissions::Place> place;
  {
    const std::lock_guard lock(mutex_);
    place.swap(place_);
    socket = std::exchange(socket_, -1);
    process = std::exchange(peer_.process, -1);
    peer_ = {};
    outbox_.close();
  }
  if (socket >= 0) ::close(socket);
  if (process >= 0) ::close(process);
  buffer_.clear();
  receiver_.reset();
  readsMayWait_ = false;
}

// -------------------------------------------------------------------------------------------------
// Ends caused by the peer or its absence

bool ConnectionCore::endsLocally() const {
  const std::lock_guard lock(mutex_);
  return life_.endsLocally();
}

void ConnectionCore::endStream() {
  const bool interrupted = streamEnd_ == StreamEnd::Lost && !accepted_;
  streamEnd_ = StreamEnd::No;
  connectAttempts_ = 0;
  logMissedSinceGone();
  closeSocket();
  if (!interrupted) {
    const std::lock_guard lock(mutex_);
    life_.take(Event::Lose);
  }
  failEverythingPending(interrupted ? NSXPCConnectionInterrupted : NSXPCConnectionInvalid,
                        interrupted ? "was interrupted" : "was invalidated", /*keepUnsent=*/false);
  runFailures();
  if (!accepted_) pause(pauseBeforeNotice());
  interrupted ? callInterruptionHandler() : callInvalidationHandler();
}

/// Calls the error handlers of requests in the order of sending, then those of one-way messages
/// that were never written.
void ConnectionCore::failEverythingPending(std::int64_t code, const char* what, bool keepUnsent) {
  PendingRequests::Requests pending;
  std::vector<SendBacklog::Entry> unsent;
  {
    const std::lock_guard lock(mutex_);
    pending = pending_.takeAll();
    if (!keepUnsent) unsent = outbox_.takeAll();
  }
  const auto error = makeErrorAnyway(code, what);
  const auto fail = [&](SharedErrorHandler& handler) {
    if (handler && *handler) guarded("an error handler", [&] { (*handler)(error); });
    handler.reset();
  };
  for (auto& [id, request] : pending) {
    fail(request.errorHandler);
    request.reply = nullptr;
  }
  for (auto& message : unsent) {
    if (message.oneWay) fail(message.errorHandler);
  }
}

/// A connection that exports nothing is its own client: it can only be interrupted.
std::chrono::milliseconds ConnectionCore::pauseBeforeNotice() const {
  std::weak_ptr<void> client;
  {
    const std::lock_guard lock(mutex_);
    client = exports_.latestObject();
  }
  if (client.expired()) client = std::const_pointer_cast<ConnectionCore>(shared_from_this());
  return pauseAfterEnd(client, service_, Clock::now() - connectStarted_);
}

/// Waits on the queue, running only error handlers, until the time is up or the connection is ended
/// locally.
void ConnectionCore::pause(std::chrono::milliseconds duration) {
  if (duration.count() == 0) return;
  const auto deadline = Clock::now() + duration;
  while (Clock::now() < deadline && !endsLocally()) {
    static_cast<void>(wait(millisecondsUntil(deadline), false));
    attention_.store(false);
    runFailures();
  }
}

void ConnectionCore::callInterruptionHandler() {
  SharedHandler handler;
  {
    const std::lock_guard lock(mutex_);
    if (life_.endsLocally()) return;
    handler = interruptionHandler_;
  }
  if (handler) guarded("the interruption handler", *handler);
}

void ConnectionCore::callInvalidationHandler() {
  EndHandlers handlers;
  while (!takeEndHandlers(handlers)) runFailures();
  const bool stale = resumedEntry_.isSuperseded();
  if (handlers.invalidation && !stale) guarded("the invalidation handler", *handlers.invalidation);
  resumedEntry_.leave();
}

/// Takes nothing while failures are waiting: the invalidation handler is called after the error
/// handlers of everything sent before it.
bool ConnectionCore::takeEndHandlers(EndHandlers& handlers) {
  const std::lock_guard lock(mutex_);
  if (pending_.hasFailures()) return false;
  life_.take(Event::Notify);
  handlers.interruption.swap(interruptionHandler_);
  handlers.invalidation.swap(invalidationHandler_);
  handlers.calls.swap(calls_);
  return true;
}

// -------------------------------------------------------------------------------------------------
// Local ends

void ConnectionCore::finishLocally() {
  connectToFlush();
  bool connected = false;
  const bool saidFarewell = retryWhileShort([&] {
    Handlers released;
    const std::lock_guard lock(mutex_);
    connected = socket_ >= 0;
    if (life_.phase() != Phase::Abandoned) endStreamLocallyLocked(released);
  });
  if (!saidFarewell) log("ends without a farewell: out of memory");
  failEverythingPending(NSXPCConnectionInvalid, "was invalidated", /*keepUnsent=*/connected);
  callInvalidationHandler();
  linger();
  closeSocket();
}

/// Sends what was queued before invalidate, even if no stream was open yet.
void ConnectionCore::connectToFlush() {
  {
    const std::lock_guard lock(mutex_);
    if (life_.phase() != Phase::Invalidated || accepted_ || socket_ >= 0 || outbox_.empty()) return;
  }
  ServiceConnectResult result;
  guarded("connecting", [&] { result = serviceEndpoints().load()->connectToService(service_); });
  if (result.outcome == ServiceConnectResult::Outcome::Connected)
    static_cast<void>(adoptSocket(result.descriptor));  // without a hello the farewell fails too
}

/// Gives a slow peer time to read what was sent.
void ConnectionCore::linger() {
  const auto deadline = Clock::now() + kLongestLinger;
  std::vector<SendBacklog::Entry> lost;
  bool peerEnded = false;
  for (;;) {
    Handlers released;
    {
      const std::lock_guard lock(mutex_);
      if (socket_ < 0) return;
      outbox_.flush(released);
      peerEnded = outbox_.isBroken();
      const bool over = peerEnded || Clock::now() >= deadline;
      if (over) lost = outbox_.takeAll();
      if (over || outbox_.empty()) break;
    }
    pollfd watched{socket_, POLLOUT, 0};
    ::poll(&watched, 1, millisecondsUntil(deadline));
  }
  // If the peer has ended as well, the rest cannot be delivered, and nobody expects it.
  if (!lost.empty() && !peerEnded)
    log(std::to_string(lost.size()),
        " messages sent before the end were not delivered: the peer did not read them in time");
  ::shutdown(socket_, SHUT_WR);
}

bool ConnectionCore::waitOnQueueThread(std::size_t bytes, Clock::time_point deadline) {
  for (;;) {
    Handlers released;
    {
      const std::lock_guard lock(mutex_);
      outbox_.flush(released);
      if (outbox_.size() < bytes) return true;
      if (socket_ < 0 || outbox_.isBroken()) return false;
    }
    if (Clock::now() >= deadline) return false;
    pollfd watched{socket_, POLLOUT, 0};
    ::poll(&watched, 1, millisecondsUntil(deadline));
  }
}

// -------------------------------------------------------------------------------------------------

std::shared_ptr<NSError> ConnectionCore::makeError(std::int64_t code, const char* what) const {
  const std::string whom =
      accepted_ ? std::string("the connection") : "the connection to service " + service_;
  return connectionError(false, code, whom + " " + what);
}

std::shared_ptr<NSError> ConnectionCore::makeErrorAnyway(std::int64_t code, const char* what) const
    try {
  return makeError(code, what);
} catch (const std::bad_alloc&) {
  return spareError(code);
}

void ConnectionCore::logText(const std::string& text) const {
  NSLogString(
      printableLine((accepted_ ? std::string("accepted connection") : "connection to " + service_) +
                    ": " + text));
}

}  // namespace platform::xpc
