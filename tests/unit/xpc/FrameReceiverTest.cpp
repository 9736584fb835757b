// SPDX-License-Identifier: Apache-2.0

// How a peer's bytes are understood, frame by frame, without a connection.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/xpc/FrameReceiver.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace platform::xpc {
namespace {

using Outcome = FrameReceiver::Outcome;
using Bytes = std::vector<std::uint8_t>;

Bytes frame(std::uint8_t kind, const Bytes& body = {}, std::uint8_t method = 0) {
  Bytes bytes{static_cast<std::uint8_t>(body.size()), 0, 0, 0, kind, 0, method, 0};
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}
Bytes hello() {
  WireWriter writer;
  writeHello(writer, {kWireVersion, "Theirs", "Ours"});
  return {writer.bytes().begin(), writer.bytes().end()};
}
Bytes id(std::uint8_t value, const Bytes& rest = {}) {
  Bytes bytes{value, 0, 0, 0, 0, 0, 0, 0};
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  return bytes;
}
FrameReceiver greeted() {
  FrameReceiver receiver;
  EXPECT_EQ(receiver.next(hello()), Outcome::Frame);
  return receiver;
}
/// The reason of the breach that a frame after the hello is; "none" if it is valid.
std::string breachOf(const Bytes& bytes) {
  FrameReceiver receiver = greeted();
  if (receiver.next(bytes) != Outcome::Breach) return "none";
  return std::string(receiver.reason());
}

TEST(FrameReceiver, AFrameIsIncompleteUntilItsLastByte) {
  const Bytes bytes = hello();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    FrameReceiver receiver;
    EXPECT_EQ(receiver.next({bytes.data(), length}), Outcome::Incomplete) << length;
    EXPECT_EQ(receiver.frameSize(), length < kFrameHeaderSize ? 0U : bytes.size()) << length;
    EXPECT_FALSE(receiver.sawHello()) << length;
  }
  FrameReceiver receiver;
  EXPECT_EQ(receiver.next(bytes), Outcome::Frame);
  EXPECT_EQ(receiver.frameSize(), bytes.size());
  EXPECT_TRUE(receiver.sawHello());
}

TEST(FrameReceiver, TakesTheFirstOfSeveralFrames) {
  Bytes bytes = frame(5, id(9));
  const Bytes second = frame(6);
  bytes.insert(bytes.end(), second.begin(), second.end());
  FrameReceiver receiver = greeted();
  ASSERT_EQ(receiver.next(bytes), Outcome::Frame);
  EXPECT_EQ(receiver.frame().kind, FrameKind::ReplyDropped);
  EXPECT_EQ(receiver.frame().id, 9U);
  ASSERT_EQ(receiver.next(std::span(bytes).subspan(receiver.frameSize())), Outcome::Frame);
  EXPECT_EQ(receiver.frame().kind, FrameKind::Farewell);
  EXPECT_EQ(receiver.frame().id, 0U);
}

TEST(FrameReceiver, ACallHasItsMethodItsIDAndItsValues) {
  FrameReceiver receiver = greeted();
  const Bytes request = frame(3, id(7, {1, 2}), 4);
  ASSERT_EQ(receiver.next(request), Outcome::Frame);
  EXPECT_EQ(receiver.frame().method, 4U);
  EXPECT_EQ(receiver.frame().id, 7U);
  EXPECT_EQ(receiver.frame().values.size(), 2U);
  const Bytes message = frame(2, {1, 2, 3}, 5);
  ASSERT_EQ(receiver.next(message), Outcome::Frame);
  EXPECT_EQ(receiver.frame().method, 5U);
  EXPECT_EQ(receiver.frame().id, 0U);
  EXPECT_EQ(receiver.frame().values.size(), 3U);
}

TEST(FrameReceiver, NothingComesBeforeTheHello) {
  for (const std::uint8_t kind : {2, 3, 4, 5, 6}) {
    FrameReceiver receiver;
    ASSERT_EQ(receiver.next(frame(kind, id(1))), Outcome::Breach) << int{kind};
    EXPECT_EQ(receiver.reason(), "the first frame is not a hello");
  }
}

TEST(FrameReceiver, ABreachHasAReason) {
  EXPECT_EQ(breachOf(hello()), "a second hello");
  EXPECT_EQ(breachOf({1, 0, 0, 1, 2, 0, 0, 0}), "a frame of more than 16 MiB");
  EXPECT_EQ(breachOf(frame(7)), "a frame of unknown kind");
  EXPECT_EQ(breachOf(frame(0)), "a frame of unknown kind");
  EXPECT_EQ(breachOf({0, 0, 0, 0, 2, 1, 0, 0}), "a frame whose reserved byte is not zero");
  EXPECT_EQ(breachOf(frame(3, id(0))), "a request without an ID");
  EXPECT_EQ(breachOf(frame(3, {1, 2})), "a request without an ID");
  EXPECT_EQ(breachOf(frame(6, {1})), "a farewell with a body");
  for (const Bytes& body : {Bytes{1, 2}, id(1, {2})})
    EXPECT_EQ(breachOf(frame(5, body)), "a malformed reply-dropped frame");
  for (const std::uint8_t kind : {1, 4, 5, 6})
    EXPECT_EQ(breachOf(frame(kind, id(1), 1)), "an unexpected method number");
}

TEST(FrameReceiver, AReplyThatIsCutShortAnswersNobody) {
  FrameReceiver receiver = greeted();
  ASSERT_EQ(receiver.next(frame(4, {1, 2})), Outcome::Frame);
  EXPECT_EQ(receiver.frame().id, 0U);
}

TEST(FrameReceiver, AHelloIsComparedWithOurs) {
  const Bytes theirs = hello();
  FrameReceiver receiver;
  ASSERT_EQ(receiver.next(theirs), Outcome::Frame);
  EXPECT_EQ(receiver.mismatchWith({kWireVersion, "Ours", "Theirs"}), "");
  EXPECT_NE(receiver.mismatchWith({kWireVersion, "Another", "Theirs"}), "");
  const Bytes none = frame(1, {1, 2, 3});
  receiver.reset();
  EXPECT_FALSE(receiver.sawHello());
  ASSERT_EQ(receiver.next(none), Outcome::Frame);
  EXPECT_EQ(receiver.mismatchWith({}), "a malformed hello");
}

TEST(FrameReceiver, DecodesCallsThatTheProtocolKnows) {
  const InterfaceTable table(
      std::make_shared<NSXPCInterface>(WLHIDEventRouterClientProtocol::protocol()));
  const Bytes report = frame(2, {1, 1, 0xAB, 9, 0, 0, 0});  // a data object of one byte, and the ID
  FrameReceiver receiver = greeted();
  ASSERT_EQ(receiver.next(report), Outcome::Frame);
  XPCValues values;
  ASSERT_EQ(receiver.decodeCall(table, values).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(values.count, 2U);
  const auto reasonFor = [&](const Bytes& bytes) {
    EXPECT_EQ(receiver.next(bytes), Outcome::Frame);
    XPCValues none;
    const ValuesResult result = receiver.decodeCall(table, none);
    EXPECT_EQ(result.verdict, DecodeVerdict::Malformed);
    return std::string(result.reason);
  };
  EXPECT_EQ(reasonFor(frame(2, {}, 2)), "an unknown method");
  EXPECT_EQ(reasonFor(frame(3, id(1))), "a message sent as a request, or a request as a message");
}

TEST(FrameReceiver, DecodesRepliesByTheirRules) {
  FrameReceiver receiver = greeted();
  const Bytes reply = frame(4, id(1, {0}));
  ASSERT_EQ(receiver.next(reply), Outcome::Frame);
  XPCValues values;
  EXPECT_EQ(receiver.decodeReply({ArgumentRule{}}, values).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(values.count, 1U);
  XPCValues none;
  EXPECT_EQ(receiver.decodeReply({}, none).verdict, DecodeVerdict::Malformed);
}

}  // namespace
}  // namespace platform::xpc
