// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ConnectionCore.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/PrintableText.h"
#include "platform/xpc/Guarded.h"

namespace platform::xpc {
namespace {

std::atomic<std::size_t> liveConnections{0};

constexpr const char* kDropsBegin = "the peer does not read; messages are being dropped";

std::shared_ptr<NSError> droppedError() {
  return connectionError(true, ENOBUFS, "the peer does not read; the message was dropped");
}

}  // namespace

std::string nameOf(const SharedTable& table) {
  return table ? std::string(table->protocol().name) : std::string();
}

std::shared_ptr<NSError> connectionError(bool posix, std::int64_t code, const std::string& what) {
  const auto userInfo = NSDictionary::dictionaryWithEntries(
      {{str("NSDebugDescription"), NSString::stringWithUTF8(what)}});
  return NSError::errorWithDomain_code_userInfo(
      str(posix ? NSPOSIXErrorDomain : NSCocoaErrorDomain), code, userInfo);
}

const std::shared_ptr<NSError>& spareError(std::int64_t code) {
  const auto make = [](std::int64_t number) {
    return NSError::errorWithDomain_code_userInfo(str(NSCocoaErrorDomain), number, nullptr);
  };
  static const auto* const errors = new std::array<std::shared_ptr<NSError>, 3>{
      make(NSXPCConnectionInterrupted), make(NSXPCConnectionInvalid),
      make(NSXPCConnectionReplyInvalid)};
  const auto found = std::find_if(errors->begin(), errors->end(),
                                  [code](const auto& error) { return error->code() == code; });
  return found == errors->end() ? errors->front() : *found;
}

std::shared_ptr<ConnectionCore> ConnectionCore::toService(std::string service) {
  return std::make_shared<ConnectionCore>(std::move(service), -1);
}

std::shared_ptr<ConnectionCore> ConnectionCore::accepted(int socket, int wake,
                                                         PreparedThread thread) try {
  auto core = std::make_shared<ConnectionCore>(std::string(), socket);
  core->wake_ = wake;
  core->thread_ = std::move(thread);
  return core;
} catch (...) {
  ::close(socket);
  if (wake >= 0) ::close(wake);
  throw;
}

ConnectionCore::ConnectionCore(std::string service, int acceptedSocket)
    : service_(std::move(service)), accepted_(acceptedSocket >= 0), socket_(acceptedSocket) {
  static_cast<void>(spareError(NSXPCConnectionInvalid));  // creates all of them
  if (!accepted_) return;
  peer_ = peerOfSocket(socket_);
  countsAsLive_ = true;
  liveConnections.fetch_add(1);
}

ConnectionCore::~ConnectionCore() {
  if (socket_ >= 0) ::close(socket_);
  if (wake_ >= 0) ::close(wake_);
  if (peer_.process >= 0) ::close(peer_.process);
  if (countsAsLive_) liveConnections.fetch_sub(1);
}

void ConnectionCore::setPlace(std::unique_ptr<Admissions::Place> place) {
  const std::lock_guard lock(mutex_);
  outbox_.chargeTo(place->unsent());
  place_ = std::move(place);
}

std::size_t ConnectionCore::liveCount() {
  return liveConnections.load();
}

// -------------------------------------------------------------------------------------------------
// Configuration

void ConnectionCore::setExportedTable(SharedTable table) {
  if (mark_.isInherited()) return;
  const std::lock_guard lock(mutex_);
  exports_.swapTable(table);
}

void ConnectionCore::setExportedObject(XPCExportedObject object) {
  if (mark_.isInherited()) return;
  const std::lock_guard lock(mutex_);
  exports_.swapObject(object);
}

void ConnectionCore::setRemoteTable(SharedTable table) {
  if (mark_.isInherited()) return;
  const std::lock_guard lock(mutex_);
  remoteTable_.swap(table);
}

SharedTable ConnectionCore::remoteTable() const {
  if (mark_.isInherited()) return nullptr;
  const std::lock_guard lock(mutex_);
  return remoteTable_;
}

void ConnectionCore::replaceHandler(SharedHandler& slot, std::function<void()> handler) {
  if (mark_.isInherited()) return;
  auto shared = handler ? std::make_shared<std::function<void()>>(std::move(handler)) : nullptr;
  const std::lock_guard lock(mutex_);
  if (life_.mayNotify()) slot.swap(shared);
}

void ConnectionCore::setInterruptionHandler(std::function<void()> handler) {
  replaceHandler(interruptionHandler_, std::move(handler));
}

void ConnectionCore::setInvalidationHandler(std::function<void()> handler) {
  replaceHandler(invalidationHandler_, std::move(handler));
}

// -------------------------------------------------------------------------------------------------
// Beginning and ending

void ConnectionCore::resume() {
  if (mark_.isInherited()) return;
  Handlers released;
  std::unique_lock lock(mutex_);
  if (!life_.take(Event::Resume)) return;
  resumedEntry_.enter(exports_.latestObject());
  if (place_) helloDeadline_ = Clock::now() + place_->helloWithin();
  if (accepted_) {
    openStreamLocked();
    outbox_.flush(released);
  }
  pokeLocked();
  const bool starved = !threadRuns_;
  lock.unlock();
  if (starved) log("no thread or descriptor is available; the next call tries again");
}

void ConnectionCore::invalidate() {
  if (mark_.isInherited()) return releaseInherited();
  Handlers released;
  const std::lock_guard lock(mutex_);
  if (!life_.take(Event::Invalidate)) return;
  resumedEntry_.close(exports_.latestObject());
  try {
    endStreamLocallyLocked(released);
  } catch (const std::bad_alloc&) {
    if (socket_ >= 0) ::shutdown(socket_, SHUT_RD);  // the queue then sends the farewell
  }
  pokeLocked();
}

void ConnectionCore::abandon() {
  if (mark_.isInherited()) return releaseInherited();
  Handlers released;
  SharedHandler interruption;
  SharedHandler invalidation;
  const std::lock_guard lock(mutex_);
  if (!life_.take(Event::Abandon)) return;
  interruption.swap(interruptionHandler_);
  invalidation.swap(invalidationHandler_);
  stopDelivering_.store(true, std::memory_order_relaxed);
  outbox_.flush(released);
  if (socket_ >= 0) ::shutdown(socket_, SHUT_RD);
  const bool nothingToDo = socket_ < 0 && pending_.empty() && outbox_.empty();
  if (!threadRuns_ && nothingToDo) {
    life_.take(Event::Notify);
    resumedEntry_.leave();
  } else {
    pokeLocked();
  }
}

/// Runs once, and only if no thread that does not exist in this process held the lock at the moment
/// of the fork: otherwise the descriptors stay open until the process ends or executes a program.
void ConnectionCore::releaseInherited() {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock) return;
  for (int* const descriptor : {&socket_, &wake_, &peer_.process}) {
    if (*descriptor >= 0) ::close(std::exchange(*descriptor, -1));
  }
  if (std::exchange(countsAsLive_, false)) liveConnections.fetch_sub(1);
}

void ConnectionCore::endStreamLocallyLocked(Handlers& released) {
  stopDelivering_.store(true, std::memory_order_relaxed);
  if (socket_ < 0) return;
  if (!outbox_.isOpen()) openStreamLocked();
  if (outbox_.sayFarewell(released)) ::shutdown(socket_, SHUT_RD);  // wakes the queue
}

void ConnectionCore::openStreamLocked() {
  outbox_.open(socket_, {kWireVersion, nameOf(exports_.latestTable()), nameOf(remoteTable_)});
}

// -------------------------------------------------------------------------------------------------
// Sending

void ConnectionCore::send(const SharedTable& remote, std::size_t method, const XPCValues& arguments,
                          XPCReplyHandler reply, const SharedErrorHandler& errorHandler) {
  sendAny(remote, method, arguments, std::move(reply), errorHandler);
}

void ConnectionCore::sendMessage(const SharedTable& remote, std::size_t method,
                                 std::span<const XPCArgumentRef> arguments,
                                 const SharedErrorHandler& errorHandler) {
  sendAny(remote, method, arguments, {}, errorHandler);
}

template <class Arguments>
void ConnectionCore::sendAny(const SharedTable& remote, std::size_t method,
                             const Arguments& arguments, XPCReplyHandler reply,
                             const SharedErrorHandler& errorHandler) {
  if (mark_.isInherited()) return;
  const bool request = remote->methods()[method].hasReply;
  const std::uint64_t id = request ? pending_.newID() : 0;
  WireWriter frame;
  try {
    frame.beginFrame(request ? FrameKind::Request : FrameKind::Message, method);
    if (request) frame.u64(id);
    encodeValues(frame, arguments);
    frame.finishFrame();
  } catch (const EncodingError& error) {
    return failUnencodable(error, std::move(reply), errorHandler);
  }
  bool dropsBegin = false;
  {
    const std::lock_guard lock(mutex_);
    if (life_.hasEnded()) {
      return failLocked(reply, errorHandler, makeError(NSXPCConnectionInvalid, "is invalid"));
    }
    if (outbox_.fits(frame.size())) {
      if (request) pending_.add(id, {remote, method, std::move(reply), errorHandler});
      return putLocked(frame.bytes(), !request, errorHandler);
    }
    dropsBegin = outbox_.drop();
    failLocked(reply, errorHandler, droppedError());
  }
  if (dropsBegin) log(kDropsBegin);
}

void ConnectionCore::failUnencodable(const EncodingError& error, XPCReplyHandler reply,
                                     const SharedErrorHandler& errorHandler) {
  NSLogString(printableLine("a message was not sent: " + std::string(error.what())));
  const std::lock_guard lock(mutex_);
  failLocked(reply, errorHandler, connectionError(true, error.code(), error.what()));
}

/// Nothing is thrown: if memory is short, the contents of the batch are lost with the stream.
void ConnectionCore::sendTogether(const BatchedFrames& batch) {
  if (mark_.isInherited()) return;
  bool dropsBegin = false;
  {
    const std::lock_guard lock(mutex_);
    try {
      dropsBegin = putBatchLocked(batch);
    } catch (const std::bad_alloc&) {
      outbox_.breakOff();
    }
  }
  if (dropsBegin) log(kDropsBegin);
}

/// Whether dropping begins with this batch.
bool ConnectionCore::putBatchLocked(const BatchedFrames& batch) {
  XPCReplyHandler noReply;
  if (life_.hasEnded()) {
    for (const auto& message : batch.messages)
      failLocked(noReply, message.errorHandler, makeError(NSXPCConnectionInvalid, "is invalid"));
    return false;
  }
  Handlers refused;
  const bool dropsBegin = outbox_.put(batch, refused);
  for (const auto& handler : refused) failLocked(noReply, handler, droppedError());
  if (life_.isActive() && !outbox_.empty()) pokeLocked();
  return dropsBegin;
}

// -------------------------------------------------------------------------------------------------
// Answers and the socket

void ConnectionCore::answer(std::uint64_t stream, std::uint64_t id,
                            const std::vector<ArgumentRule>& rules, const XPCValues* values) {
  if (mark_.isInherited()) return;
  WireWriter frame;
  frame.beginFrame(values ? FrameKind::Reply : FrameKind::ReplyDropped, 0);
  frame.u64(id);
  if (values != nullptr) {
    try {
      if (values->count != rules.size())
        throw EncodingError(EINVAL, "wrong number of values in a reply");
      encodeValues(frame, *values);
    } catch (const EncodingError& error) {
      NSLogString(printableLine("a reply was not sent: " + std::string(error.what())));
      return answer(stream, id, rules, nullptr);
    }
  }
  frame.finishFrame();
  const std::lock_guard lock(mutex_);
  if (!awaitsAnswerLocked(stream)) return;
  if (outbox_.fits(frame.size())) return putLocked(frame.bytes(), false, nullptr);
  outbox_.drop();
  outbox_.loseAnswer();
  pokeLocked();
}

void ConnectionCore::endUnanswered(std::uint64_t stream) {
  if (mark_.isInherited()) return;
  const std::lock_guard lock(mutex_);
  if (!awaitsAnswerLocked(stream)) return;
  outbox_.loseAnswer();
  pokeLocked();
}

bool ConnectionCore::awaitsAnswerLocked(std::uint64_t stream) const {
  return stream == outbox_.stream() && outbox_.isOpen() && !life_.hasEnded() &&
         !outbox_.hasLostAnswer();
}

void ConnectionCore::putLocked(std::span<const std::uint8_t> frame, bool oneWay,
                               const SharedErrorHandler& errorHandler) {
  const bool waited = !outbox_.empty();
  outbox_.put(frame, oneWay, errorHandler);
  if (!waited && !outbox_.empty() && life_.isActive()) pokeLocked();
}

std::size_t ConnectionCore::unsentBytes() const {
  return mark_.isInherited() ? 0 : outbox_.size();
}

std::size_t ConnectionCore::unsentBytesOfUser() const {
  if (mark_.isInherited()) return 0;
  const std::lock_guard lock(mutex_);
  return place_ ? place_->unsent()->taken() : outbox_.size();
}

bool ConnectionCore::waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) {
  if (mark_.isInherited()) return true;
  const std::size_t below = std::max<std::size_t>(bytes, 1);
  const auto deadline =
      Clock::now() + std::clamp<std::chrono::milliseconds>(limit, std::chrono::milliseconds{0},
                                                           std::chrono::hours{24});
  std::unique_lock lock(mutex_);
  if (threadRuns_ && queueThread_ == std::this_thread::get_id()) {
    lock.unlock();
    return waitOnQueueThread(below, deadline);
  }
  return outbox_.waitUntilBelow(lock, below, deadline);
}

std::uint64_t ConnectionCore::messagesDropped() const {
  if (mark_.isInherited()) return 0;
  const std::lock_guard lock(mutex_);
  return outbox_.dropped();
}

PeerIdentity ConnectionCore::peer() const {
  if (mark_.isInherited()) return {};
  const std::lock_guard lock(mutex_);
  return peer_;
}

// -------------------------------------------------------------------------------------------------
// Waking the queue thread

void ConnectionCore::failLocked(XPCReplyHandler& reply, const SharedErrorHandler& errorHandler,
                                std::shared_ptr<NSError> error) {
  if (pending_.fail(reply, errorHandler, std::move(error))) pokeLocked();
}

void ConnectionCore::pokeLocked() {
  if (!threadRuns_ && !startThreadLocked()) return;
  if (!attention_.exchange(true)) ::eventfd_write(wake_, 1);
}

void ConnectionCore::callOnQueue(std::function<void()> action) {
  if (mark_.isInherited()) return;
  const std::lock_guard lock(mutex_);
  if (life_.hasEnded()) return;
  calls_.push_back(std::move(action));
  if (life_.isActive()) pokeLocked();
}

/// If no thread or descriptor is available, the work stays queued and the next call tries again.
bool ConnectionCore::startThreadLocked() {
  if (wake_ < 0) wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_ < 0) return false;
  attention_.store(false);
  keptForThread_ = shared_from_this();
  threadRuns_ = bool(thread_);
  if (thread_) {
    thread_.begin(&ConnectionCore::threadMain, this);
  } else {
    threadRuns_ = startDetachedThread(&ConnectionCore::threadMain, this);
  }
  if (!threadRuns_) keptForThread_.reset();  // the caller's reference remains
  if (threadRuns_ && !countsAsLive_) {
    countsAsLive_ = true;
    liveConnections.fetch_add(1);
  }
  return threadRuns_;
}

/// Allocates nothing, so that a connection can end when memory is short.
void* ConnectionCore::threadMain(void* started) {
  nameThisThread("xpc connection");
  std::shared_ptr<ConnectionCore> core;
  {
    auto* const self = static_cast<ConnectionCore*>(started);
    const std::lock_guard lock(self->mutex_);
    core.swap(self->keptForThread_);
  }
  try {
    core->run();
  } catch (const InForkedChild&) {
    core->releaseInherited();
    return nullptr;
  }
  core.reset();
  liveConnections.fetch_sub(1);
  return nullptr;
}

/// The count itself falls when the thread has released everything.
void ConnectionCore::releaseTokenLocked() {
  threadRuns_ = false;
  countsAsLive_ = false;
  queueThread_ = {};
  ::close(std::exchange(wake_, -1));  // an ended connection needs no descriptor
}

}  // namespace platform::xpc
