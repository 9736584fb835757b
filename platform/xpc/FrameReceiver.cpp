// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/FrameReceiver.h"

#include <utility>

namespace platform::xpc {
namespace {

std::string_view headerFault(HeaderVerdict verdict) {
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
  return {};
}

bool isCall(FrameKind kind) {
  return kind == FrameKind::Message || kind == FrameKind::Request;
}

}  // namespace

FrameReceiver::Outcome FrameReceiver::next(std::span<const std::uint8_t> bytes) {
  size_ = 0;
  if (bytes.size() < kFrameHeaderSize) return Outcome::Incomplete;
  FrameHeader header;
  const HeaderVerdict verdict = readFrameHeader(bytes.data(), header);
  if (verdict != HeaderVerdict::Valid) return breach(headerFault(verdict));
  size_ = kFrameHeaderSize + header.length;
  if (bytes.size() < size_) return Outcome::Incomplete;
  frame_ = {header.kind, header.method, 0, bytes.subspan(kFrameHeaderSize, header.length)};
  if (!sawHello_ && frame_.kind != FrameKind::Hello)
    return breach("the first frame is not a hello");
  return isCall(frame_.kind) ? checkCall() : checkOther();
}

FrameReceiver::Outcome FrameReceiver::checkCall() {
  if (frame_.kind == FrameKind::Message) return Outcome::Frame;
  takeID();
  return frame_.id != 0 ? Outcome::Frame : breach("a request without an ID");
}

FrameReceiver::Outcome FrameReceiver::checkOther() {
  if (frame_.method != 0) return breach("an unexpected method number");
  switch (frame_.kind) {
    case FrameKind::Hello:
      return std::exchange(sawHello_, true) ? breach("a second hello") : Outcome::Frame;
    case FrameKind::ReplyDropped:
      return checkReplyDropped();
    case FrameKind::Farewell:
      return frame_.values.empty() ? Outcome::Frame : breach("a farewell with a body");
    default:
      takeID();
      return Outcome::Frame;
  }
}

FrameReceiver::Outcome FrameReceiver::checkReplyDropped() {
  if (frame_.values.size() != kRequestIDSize) return breach("a malformed reply-dropped frame");
  takeID();
  return Outcome::Frame;
}

void FrameReceiver::takeID() {
  WireReader reader(frame_.values);
  frame_.id = reader.u64();
  frame_.values = reader.raw(reader.remaining());
}

FrameReceiver::Outcome FrameReceiver::breach(std::string_view reason) {
  reason_ = reason;
  return Outcome::Breach;
}

std::string FrameReceiver::mismatchWith(const Hello& ours) const {
  const auto theirs = readHello(frame_.values);
  return theirs ? mismatch(ours, *theirs) : "a malformed hello";
}

ValuesResult FrameReceiver::decodeCall(const InterfaceTable& exported, XPCValues& values) const {
  if (frame_.method >= exported.methods().size())
    return {DecodeVerdict::Malformed, 0, "an unknown method"};
  const MethodRules& rules = exported.methods()[frame_.method];
  if (rules.hasReply != (frame_.kind == FrameKind::Request))
    return {DecodeVerdict::Malformed, 0, "a message sent as a request, or a request as a message"};
  WireReader reader(frame_.values);
  return decodeValues(reader, rules.arguments, values);
}

ValuesResult FrameReceiver::decodeReply(const std::vector<ArgumentRule>& rules,
                                        XPCValues& values) const {
  WireReader reader(frame_.values);
  return decodeValues(reader, rules, values);
}

}  // namespace platform::xpc
