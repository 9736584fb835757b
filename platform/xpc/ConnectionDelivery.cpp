#include "platform/xpc/ConnectionCore.h"
#include "platform/xpc/Guarded.h"
#include "platform/xpc/Hello.h"

namespace platform::xpc {
namespace {

/// What a reply sender holds: answers once, or says at its end that no answer will come.
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
      if (const auto core = core_.lock()) core->endForWantOfAnswer(stream_);
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

const char* headerFault(HeaderVerdict verdict) {
  switch (verdict) {
    case HeaderVerdict::TooLong:
      return "a frame of more than 16 MiB";
    case HeaderVerdict::UnknownKind:
      return "a frame of unknown kind";
    case HeaderVerdict::ReservedNotZero:
      return "a frame whose reserved byte is not zero";
    case HeaderVerdict::Valid:
      break;
  }
  return "";
}

}  // namespace

bool ConnectionCore::breach(std::string_view what) {
  streamEnd_ = StreamEnd::Breach;
  log("breach: ", what);
  return false;
}

/// Whether the stream goes on.
bool ConnectionCore::deliverFrames() {
  while (!stopDelivering_.load(std::memory_order_relaxed)) {
    const auto unread = buffer_.unread();
    frontFrameSize_ = 0;
    if (unread.size() < kFrameHeaderSize) return true;
    FrameHeader header;
    const HeaderVerdict verdict = readFrameHeader(unread.data(), header);
    if (verdict != HeaderVerdict::Valid) return breach(headerFault(verdict));
    const std::size_t size = kFrameHeaderSize + header.length;
    if (unread.size() < size) {
      frontFrameSize_ = size;
      return true;
    }
    if (!handleFrame(header, unread.subspan(kFrameHeaderSize, header.length))) return false;
    buffer_.consume(size);
  }
  return false;
}

bool ConnectionCore::handleFrame(const FrameHeader& header, std::span<const std::uint8_t> body) {
  if (header.kind == FrameKind::Message && helloSeen_) return handleCall(header, body);
  if (!helloSeen_ && header.kind != FrameKind::Hello) return breach("the first frame is no hello");
  if (header.kind == FrameKind::Request) return handleCall(header, body);
  if (header.method != 0) return breach("a method number where none belongs");
  switch (header.kind) {
    case FrameKind::Hello:
      return handleHello(body);
    case FrameKind::Reply:
      return handleReply(body);
    case FrameKind::ReplyDropped:
      return handleReplyDropped(body);
    case FrameKind::Farewell:
      break;
    case FrameKind::Message:
    case FrameKind::Request:
      return handleCall(header, body);
  }
  if (!body.empty()) return breach("a farewell with a body");
  streamEnd_ = StreamEnd::Farewell;
  return false;
}

bool ConnectionCore::handleHello(std::span<const std::uint8_t> body) {
  if (helloSeen_) return breach("a second hello");
  helloSeen_ = true;
  const auto theirs = readHello(body);
  if (!theirs) return breach("a hello that is none");
  Hello ours;
  {
    const std::lock_guard lock(mutex_);
    if (exportedTable_) ours.exported = exportedTable_->protocol().name;
    if (remoteTable_) ours.remote = remoteTable_->protocol().name;
  }
  const std::string why = mismatch(ours, *theirs);
  if (why.empty() && place_) place_->saidHello();
  return why.empty() || breach(why);
}

// -------------------------------------------------------------------------------------------------------------------
// Calls

void ConnectionCore::refreshExported() {
  if (exportedVersion_.load(std::memory_order_acquire) == seenVersion_) return;
  SharedTable table;
  XPCExportedObject object;
  {
    const std::lock_guard lock(mutex_);
    table = exportedTable_;
    object = exportedObject_;
    seenVersion_ = exportedVersion_.load(std::memory_order_relaxed);
  }
  exported_.swap(table);
  std::swap(object_, object);
}

bool ConnectionCore::handleCall(const FrameHeader& header, std::span<const std::uint8_t> body) {
  refreshExported();
  WireReader reader(body);
  const std::uint64_t id = header.kind == FrameKind::Request ? reader.u64() : 0;
  if (header.kind == FrameKind::Request && id == 0) return breach("a request without an ID");
  if (!exported_) return dropForWantOfObject(header.method, id), true;
  if (header.method >= exported_->methods().size())
    return breach("a method that the protocol lacks");
  const MethodRules& rules = exported_->methods()[header.method];
  if (rules.hasReply != (header.kind == FrameKind::Request))
    return breach("a message and a request mistaken for each other");
  const ValuesResult result = decodeValues(reader, rules.arguments, values_);
  if (result.verdict == DecodeVerdict::Accepted) {
    invoke(header.method, id, rules);
  } else if (result.verdict == DecodeVerdict::Refused) {
    log(exported_->protocol().methods[header.method].selector, " dropped: ", result.reason,
        " is not admitted in argument ", std::to_string(result.argument));
    answerDropped(id);
  }
  clearValues(values_);
  return result.verdict != DecodeVerdict::Malformed || breach(result.reason);
}

void ConnectionCore::invoke(std::size_t method, std::uint64_t id, const MethodRules& rules) {
  const XPCReplySender none;
  const std::shared_ptr<void> object = object_.object.lock();
  const XPCProtocol& protocol = exported_->protocol();
  if (!object || object_.protocol != &protocol) return dropForWantOfObject(method, id);
  if (!rules.hasReply) {
    return guarded("an exported method",
                   [&] { protocol.invokeTaking(object.get(), method, values_, none); });
  }
  const auto ticket =
      std::make_shared<ReplyTicket>(weak_from_this(), exported_, method, stream_, id);
  guarded("an exported method", [&] {
    protocol.invoke(object.get(), method, values_,
                    [ticket](const XPCValues& values) { ticket->answer(values); });
  });
}

/// An owner that lets go of the object and of the connection does so in that order, or in the midst
/// of a delivery: messages in between are nothing to speak of. Where the connection ends in another
/// way they are.
void ConnectionCore::dropForWantOfObject(std::size_t method, std::uint64_t id) {
  const std::weak_ptr<void> none;
  const bool isGone = object_.object.owner_before(none) || none.owner_before(object_.object);
  if (exported_ && isGone && object_.protocol == &exported_->protocol()) {
    ++missedSinceGone_;
  } else if (!std::exchange(missedObjectLogged_, true)) {
    log("message ", std::to_string(method),
        " and any further one dropped: there is no exported object");
  }
  answerDropped(id);
}

void ConnectionCore::reportMissedSinceGone() {
  const std::uint64_t missed = std::exchange(missedSinceGone_, 0);
  if (missed == 0 || endsByOwnHand()) return;
  log(std::to_string(missed), " messages dropped: the exported object is gone");
}

/// IDs begin with 1: there is nothing to answer to a one-way message.
void ConnectionCore::answerDropped(std::uint64_t id) {
  if (id != 0) answer(stream_, id, {}, nullptr);
}

// -------------------------------------------------------------------------------------------------------------------
// Replies

ConnectionCore::PendingRequests::node_type ConnectionCore::takePending(std::uint64_t id) {
  const std::lock_guard lock(mutex_);
  return pending_.extract(id);
}

bool ConnectionCore::handleReply(std::span<const std::uint8_t> body) {
  WireReader reader(body);
  auto request = takePending(reader.u64());
  if (request.empty()) return breach("a reply that nobody waits for");
  Pending& pending = request.mapped();
  XPCValues values;
  ValuesResult result;
  try {
    result = decodeValues(reader, pending.table->methods()[pending.method].reply, values);
  } catch (const std::bad_alloc&) {  // the request is still pending, and fails with the stream
    const std::lock_guard lock(mutex_);
    pending_.insert(std::move(request));
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

bool ConnectionCore::handleReplyDropped(std::span<const std::uint8_t> body) {
  WireReader reader(body);
  const std::uint64_t id = reader.u64();
  if (reader.failed() || reader.remaining() != 0)
    return breach("a malformed frame about a dropped reply");
  const auto request = takePending(id);
  if (request.empty()) return breach("news of a reply that nobody waits for");
  const Pending& pending = request.mapped();
  if (pending.errorHandler && *pending.errorHandler) {
    const auto error = makeErrorAnyway(NSXPCConnectionReplyInvalid,
                                       "will not bring a reply: the peer dropped it unanswered");
    guarded("an error handler", [&] { (*pending.errorHandler)(error); });
  }
  return true;
}

}  // namespace platform::xpc
