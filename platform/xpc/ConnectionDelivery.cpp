// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ConnectionCore.h"
#include "platform/xpc/Guarded.h"
#include "platform/xpc/Hello.h"

namespace platform::xpc {
namespace {

/// What a reply sender holds: answers once, or when destroyed reports that there will be no answer.
class ReplyTicket {
 public:
  ReplyTicket(std::weak_ptr<ConnectionCore> core, SharedTable table, std::size_t method,
              std::uint64_t stream, std::uint64_t id)
      : core_(std::move(core)),
        table_(std::move(table)),
        method_(method),
        stream_(stream),
        id_(id) {}
  ReplyTicket(const ReplyTicket&) = delete;
  ReplyTicket& operator=(const ReplyTicket&) = delete;
  ~ReplyTicket() {
    if (used_.exchange(true)) return;
    try {
      send(nullptr);
    } catch (const std::bad_alloc&) {
      if (const auto core = core_.lock()) core->endUnanswered(stream_);
    }
  }
  void answer(const XPCValues& values) {
    if (!used_.exchange(true)) send(&values);
  }

 private:
  void send(const XPCValues* values) {
    if (const auto core = core_.lock())
      core->answer(stream_, id_, table_->methods()[method_].reply, values);
  }

  const std::weak_ptr<ConnectionCore> core_;
  const SharedTable table_;
  const std::size_t method_;
  const std::uint64_t stream_;
  const std::uint64_t id_;
  std::atomic<bool> used_{false};
};

}  // namespace

bool ConnectionCore::breach(std::string_view what) {
  streamEnd_ = StreamEnd::Breach;
  log("breach: ", what);
  return false;
}

/// Returns whether the stream continues.
bool ConnectionCore::deliverFrames() {
  while (!stopDelivering_.load(std::memory_order_relaxed)) {
    switch (receiver_.next(buffer_.unread())) {
      case FrameReceiver::Outcome::Incomplete:
        return true;
      case FrameReceiver::Outcome::Breach:
        return breach(receiver_.reason());
      case FrameReceiver::Outcome::Frame:
        break;
    }
    if (!handleFrame(receiver_.frame())) return false;
    buffer_.consume(receiver_.frameSize());
  }
  return false;
}

bool ConnectionCore::handleFrame(const Frame& frame) {
  switch (frame.kind) {
    case FrameKind::Message:
    case FrameKind::Request:
      return handleCall(frame);
    case FrameKind::Hello:
      return handleHello();
    case FrameKind::Reply:
      return handleReply(frame.id);
    case FrameKind::ReplyDropped:
      return handleReplyDropped(frame.id);
    case FrameKind::Farewell:
      break;
  }
  streamEnd_ = StreamEnd::Farewell;
  return false;
}

bool ConnectionCore::handleHello() {
  Hello ours;
  {
    const std::lock_guard lock(mutex_);
    ours.exported = nameOf(exports_.latestTable());
    ours.remote = nameOf(remoteTable_);
  }
  const std::string why = receiver_.mismatchWith(ours);
  if (why.empty() && place_) place_->saidHello();
  return why.empty() || breach(why);
}

// -------------------------------------------------------------------------------------------------
// Calls

bool ConnectionCore::handleCall(const Frame& frame) {
  exports_.refresh(mutex_);
  if (!exports_.table()) return dropWithoutObject(frame.method, frame.id), true;
  const ValuesResult result = receiver_.decodeCall(*exports_.table(), values_);
  if (result.verdict == DecodeVerdict::Accepted) {
    invoke(frame.method, frame.id);
  } else if (result.verdict == DecodeVerdict::Refused) {
    log(exports_.table()->protocol().methods[frame.method].selector, " dropped: ", result.reason,
        " is not admitted in argument ", std::to_string(result.argument));
    answerDropped(frame.id);
  }
  clearValues(values_);
  return result.verdict != DecodeVerdict::Malformed || breach(result.reason);
}

void ConnectionCore::invoke(std::size_t method, std::uint64_t id) {
  const XPCReplySender none;
  const std::shared_ptr<void> object = exports_.object();
  if (!object) return dropWithoutObject(method, id);
  const XPCProtocol& protocol = exports_.table()->protocol();
  if (id == 0) {
    return guarded("an exported method",
                   [&] { protocol.invokeTaking(object.get(), method, values_, none); });
  }
  const auto ticket = std::make_shared<ReplyTicket>(weak_from_this(), exports_.table(), method,
                                                    outbox_.stream(), id);
  guarded("an exported method", [&] {
    protocol.invoke(object.get(), method, values_,
                    [ticket](const XPCValues& values) { ticket->answer(values); });
  });
}

void ConnectionCore::dropWithoutObject(std::size_t method, std::uint64_t id) {
  if (exports_.missed())
    log("message ", std::to_string(method), " and further ones dropped: no object is exported");
  answerDropped(id);
}

void ConnectionCore::logMissedSinceGone() {
  const std::uint64_t missed = exports_.takeMissedSinceGone();
  if (missed == 0 || endsLocally()) return;
  log(std::to_string(missed), " messages dropped: the exported object is gone");
}

/// IDs start at 1; 0 is a one-way message, which has no answer.
void ConnectionCore::answerDropped(std::uint64_t id) {
  if (id != 0) answer(outbox_.stream(), id, {}, nullptr);
}

// -------------------------------------------------------------------------------------------------
// Replies

PendingRequests::Requests::node_type ConnectionCore::takePending(std::uint64_t id) {
  const std::lock_guard lock(mutex_);
  return pending_.take(id);
}

bool ConnectionCore::handleReply(std::uint64_t id) {
  auto request = takePending(id);
  if (request.empty()) return breach("a reply to a request that is not pending");
  PendingRequests::Request& pending = request.mapped();
  XPCValues values;
  ValuesResult result;
  try {
    result = receiver_.decodeReply(pending.table->methods()[pending.method].reply, values);
  } catch (const std::bad_alloc&) {  // the request is still pending and fails with the stream
    const std::lock_guard lock(mutex_);
    pending_.putBack(std::move(request));
    throw;
  }
  if (result.verdict == DecodeVerdict::Accepted) {
    if (pending.reply) guarded("a reply", [&] { pending.reply(values); });
    return true;
  }
  if (result.verdict == DecodeVerdict::Refused) {
    log("a reply to ", pending.table->protocol().methods[pending.method].selector,
        " refused: ", result.reason, " is not admitted");
  }
  if (pending.errorHandler && *pending.errorHandler) {
    const auto error =
        makeErrorAnyway(NSXPCConnectionReplyInvalid, "received a reply that is not admitted");
    guarded("an error handler", [&] { (*pending.errorHandler)(error); });
  }
  return result.verdict == DecodeVerdict::Refused || breach(result.reason);
}

bool ConnectionCore::handleReplyDropped(std::uint64_t id) {
  const auto request = takePending(id);
  if (request.empty()) return breach("a reply-dropped frame for a request that is not pending");
  const PendingRequests::Request& pending = request.mapped();
  if (pending.errorHandler && *pending.errorHandler) {
    const auto error =
        makeErrorAnyway(NSXPCConnectionReplyInvalid, "got no reply: the peer dropped the request");
    guarded("an error handler", [&] { (*pending.errorHandler)(error); });
  }
  return true;
}

}  // namespace platform::xpc
