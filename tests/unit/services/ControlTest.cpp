// SPDX-License-Identifier: Apache-2.0

#include "platform/services/Control.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <span>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "tests/support/Emulation.h"
#include "tests/unit/services/PiecewiseCalls.h"

namespace {

using namespace platform;
using State = FrameReader::State;
using Operation = ControlRequest::Operation;

struct Pair {
  FileDescriptor one;
  FileDescriptor other;
};
Pair socketPair() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::span<const std::uint8_t> content(const std::vector<std::uint8_t>& frame) {
  return std::span(frame).subspan(4);
}

State readAll(FrameReader& reader, int socket) {
  State state = State::NeedMore;
  for (int i = 0; i < 100 && state == State::NeedMore; ++i) state = reader.readFrom(socket);
  return state;
}

TEST(Control, ARequestAboutAGrantNeedsOne) {
  const DeviceGrant pedal{1000, {3, 0x5f3, 0xff, "A1"}, "Pedal"};
  for (const auto operation : {Operation::Grant, Operation::Revoke}) {
    ControlRequest request;
    request.operation = operation;
    EXPECT_FALSE(decodeControlRequest(content(encode(request))));
    request.grant = pedal;
    const auto read = decodeControlRequest(content(encode(request)));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->operation, operation);
    EXPECT_EQ(read->grant, pedal);
  }
}

TEST(Control, RequestsAreReadBack) {
  for (const auto operation :
       {Operation::Authorize, Operation::Bless, Operation::Remove, Operation::Status}) {
    for (const bool wait : {true, false}) {
      const auto read =
          decodeControlRequest(content(encode(ControlRequest{operation, "com.x", wait})));
      ASSERT_TRUE(read);
      EXPECT_EQ(read->operation, operation);
      EXPECT_EQ(read->label, "com.x");
      EXPECT_EQ(read->wait, wait);
    }
  }
}

TEST(Control, AnAuthorizationsPurposeAndPromptComeThrough) {
  ControlRequest request{ControlRequest::Operation::Authorize, "com.x"};
  const auto plain = decodeControlRequest(content(encode(request)));
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->purpose, ChangePurpose::Install);
  EXPECT_EQ(plain->prompt, "");
  request.purpose = ChangePurpose::Remove;
  request.prompt = "Darf ich? \xC3\xA4";
  const auto decoded = decodeControlRequest(content(encode(request)));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->purpose, ChangePurpose::Remove);
  EXPECT_EQ(decoded->prompt, request.prompt);
}

TEST(Control, CodesKeepTheirNumbers) {
  using enum ServiceErrorCode;
  const std::vector<ServiceErrorCode> codes{
      None,         InvalidArgument, NoSuchJob,    InvalidImage, FileSystem, DaemonUnavailable,
      NotPermitted, TimedOut,        NotSupported, Protocol,     Busy};
  for (std::size_t i = 0; i < codes.size(); ++i)
    EXPECT_EQ(static_cast<std::size_t>(codes[i]), i) << "an installed daemon knows no other";
}

TEST(Control, RepliesAreReadBack) {
  ControlReply reply;
  reply.code = ServiceErrorCode::InvalidImage;
  reply.message = "the helper is malformed";
  reply.daemonProcessIdentifier = 4711;
  reply.jobs.push_back({"com.x", {"com.x", "com.y"}, 12, 3, 400, "exited with status 1"});
  const auto read = decodeControlReply(content(encode(reply)));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->code, reply.code);
  EXPECT_EQ(read->message, reply.message);
  EXPECT_EQ(read->daemonProcessIdentifier, 4711);
  ASSERT_EQ(read->jobs.size(), 1U);
  EXPECT_EQ(read->jobs[0].label, "com.x");
  EXPECT_THAT(read->jobs[0].services, testing::ElementsAre("com.x", "com.y"));
  EXPECT_EQ(read->jobs[0].processIdentifier, 12);
  EXPECT_EQ(read->jobs[0].starts, 3);
  EXPECT_EQ(read->jobs[0].heldBackMilliseconds, 400);
  EXPECT_EQ(read->jobs[0].lastEnd, "exited with status 1");
}

TEST(Control, TextThatIsNotUTF8DoesNotLoseTheReply) {
  ControlReply reply;
  reply.code = ServiceErrorCode::FileSystem;
  reply.message = "cannot open \xFF\xFE!";
  const auto read = decodeControlReply(content(encode(reply)));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->message, "cannot open !");
  reply.message = std::string("a\0b\xFF", 4);
  EXPECT_EQ(decodeControlReply(content(encode(reply)))->message, "ab");
}

TEST(Control, NonsenseIsNoMessage) {
  const std::vector<std::uint8_t> garbage{'b', 'p', 'l', 'i', 's', 't', '0', '0', 1, 2, 3};
  EXPECT_FALSE(decodeControlRequest(garbage));
  EXPECT_FALSE(decodeControlReply(garbage));
  EXPECT_FALSE(decodeControlRequest({}));
  EXPECT_FALSE(decodeControlRequest(content(encode(ControlReply{}))));
  EXPECT_FALSE(decodeControlReply(content(encode(ControlRequest{}))));
}

TEST(Control, EveryDamagedByteIsHandled) {
  const auto frame = encode(ControlRequest{Operation::Bless, "com.x", true});
  for (std::size_t i = 4; i < frame.size(); ++i) {
    for (const std::uint8_t mask : {0x01, 0x80, 0xFF}) {
      auto damaged = frame;
      damaged[i] ^= mask;
      (void)decodeControlRequest(content(damaged));
    }
    (void)decodeControlRequest(std::span(frame).subspan(4, i - 4));
  }
}

TEST(Control, FrameIsTakenInAnyPieces) {
  const auto frame = encode(ControlRequest{Operation::Remove, "com.x", false});
  auto [one, other] = socketPair();
  FrameReader reader;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    ASSERT_EQ(::send(one.get(), &frame[i], 1, 0), 1);
    EXPECT_EQ(reader.readFrom(other.get()),
              i + 1 == frame.size() ? State::Complete : State::NeedMore);
  }
  EXPECT_TRUE(decodeControlRequest(reader.content()));
}

TEST(Control, DescriptorComesWithTheFrame) {
  auto [one, other] = socketPair();
  const FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(
      sendFrame(one.get(), encode(ControlRequest{Operation::Bless, "com.x", true}), null.get()));
  FrameReader reader;
  ASSERT_EQ(readAll(reader, other.get()), State::Complete);
  const auto received = reader.takeDescriptor();
  ASSERT_TRUE(received);
  EXPECT_EQ(::fcntl(received.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  struct stat sent {};
  struct stat got {};
  ::fstat(null.get(), &sent);
  ::fstat(received.get(), &got);
  EXPECT_EQ(sent.st_ino, got.st_ino);
}

TEST(Control, LengthsAreCheckedBeforeAnythingIsAllocated) {
  for (const std::uint32_t length :
       {0U, static_cast<std::uint32_t>(kMaximumControlBytes) + 1, 0xFFFFFFFFU}) {
    auto [one, other] = socketPair();
    ASSERT_EQ(::send(one.get(), &length, 4, 0), 4);
    FrameReader reader;
    EXPECT_EQ(readAll(reader, other.get()), State::Malformed) << length;
  }
}

TEST(Control, EndOfTheStreamEndsTheFrame) {
  auto [one, other] = socketPair();
  ASSERT_EQ(::send(one.get(), "\x10\0\0", 3, 0), 3);
  one.reset();
  FrameReader reader;
  EXPECT_EQ(readAll(reader, other.get()), State::Ended);
}

TEST(Control, SendingToAClosedSocketFailsWithoutASignal) {
  auto [one, other] = socketPair();
  other.reset();
  EXPECT_FALSE(sendFrame(one.get(), encode(ControlRequest{}), -1));
}

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

std::vector<std::uint8_t> listOf(const std::vector<NSDictionary::Entry>& entries) {
  const auto data = NSPropertyListSerialization::dataWithPropertyList_format_error(
      NSDictionary::dictionaryWithEntries(entries), NSPropertyListFormat::Binary, nullptr);
  return {data->span().begin(), data->span().end()};
}

std::array<std::uint8_t, 4> littleEndian(std::size_t number) {
  std::array<std::uint8_t, 4> bytes{};
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(number);
    number >>= 8U;
  }
  return bytes;
}

TEST(Control, AFrameBeginsWithTheLengthOfItsContent) {
  for (const std::size_t size : {std::size_t{10}, std::size_t{70'000}, std::size_t{17} << 20U}) {
    ControlReply reply;
    reply.message = std::string(size, 'x');
    const auto frame = encode(reply);
    ASSERT_GE(frame.size(), 4U);
    EXPECT_THAT(std::span(frame).first(4),
                testing::ElementsAreArray(littleEndian(frame.size() - 4)));
    EXPECT_EQ(decodeControlReply(content(frame))->message.size(), size);
  }
}

TEST(Control, WhatAMessageDoesNotSayIsNothing) {
  const auto reply = decodeControlReply(listOf({{str("code"), NSNumber::numberWithLongLong(3)}}));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, ServiceErrorCode::InvalidImage);
  EXPECT_FALSE(reply->succeeded());
  EXPECT_EQ(reply->message, "");
  EXPECT_EQ(reply->daemonProcessIdentifier, 0);
  EXPECT_TRUE(reply->jobs.empty());
  const auto request = decodeControlRequest(listOf({{str("operation"), str("status")}}));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->label, "");
  EXPECT_TRUE(request->wait);
}

TEST(Control, WhatIsOfAnotherKindIsLeftOut) {
  const auto number = NSNumber::numberWithLongLong(7);
  const auto job = NSDictionary::dictionaryWithEntries(
      {{str("label"), number},
       {str("services"), NSArray::arrayWithObjects({number, str("com.x")})},
       {str("pid"), str("text")}});
  const auto reply =
      decodeControlReply(listOf({{str("code"), NSNumber::numberWithLongLong(0)},
                                 {str("message"), number},
                                 {str("daemon"), str("text")},
                                 {str("jobs"), NSArray::arrayWithObjects({str("no job"), job})}}));
  ASSERT_TRUE(reply);
  EXPECT_TRUE(reply->succeeded());
  EXPECT_EQ(reply->message, "");
  EXPECT_EQ(reply->daemonProcessIdentifier, 0);
  ASSERT_EQ(reply->jobs.size(), 1U);
  EXPECT_EQ(reply->jobs[0].label, "");
  EXPECT_THAT(reply->jobs[0].services, testing::ElementsAre("com.x"));
  EXPECT_EQ(reply->jobs[0].processIdentifier, 0);
  EXPECT_EQ(reply->jobs[0].starts, 0);
  EXPECT_FALSE(decodeControlReply(listOf({{str("code"), str("text")}})));
  EXPECT_FALSE(decodeControlRequest(listOf({{str("operation"), str("other")}})));
  EXPECT_FALSE(decodeControlRequest(
      listOf({{str("operation"), str("authorize")}, {str("purpose"), str("other")}})));
}

TEST(Control, AFrameOfTheLargestSizeIsTaken) {
  EXPECT_EQ(kMaximumControlBytes, 262144U);
  auto [one, other] = socketPair();
  const auto length = littleEndian(kMaximumControlBytes);
  ASSERT_EQ(::send(one.get(), length.data(), length.size(), 0), 4);
  FrameReader reader;
  EXPECT_EQ(reader.readFrom(other.get()), State::NeedMore);
  const std::vector<std::uint8_t> piece(65536, 'x');
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(::send(one.get(), piece.data(), piece.size(), 0), static_cast<ssize_t>(piece.size()));
    State state = State::NeedMore;
    for (int j = 0; j < 1000 && state == State::NeedMore; ++j) state = reader.readFrom(other.get());
    EXPECT_EQ(state, i == 3 ? State::Complete : State::NeedMore);
  }
  EXPECT_EQ(reader.content().size(), kMaximumControlBytes);
}

TEST(Control, AnEndIsNotTakenForNothingToRead) {
  auto [one, other] = socketPair();
  FrameReader reader;
  EXPECT_EQ(reader.readFrom(other.get()), State::NeedMore);
  one.reset();
  EXPECT_EQ(reader.readFrom(other.get()), State::Ended);
  EXPECT_EQ(reader.readFrom(-1), State::Ended);
}

/// A message of the bytes in `vector`, with that room for descriptors.
msghdr messageOf(iovec& vector, std::span<char> control) {
  msghdr message{};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  return message;
}

/// Sends one byte with these descriptors.
void sendWith(int socket, const std::vector<int>& descriptors) {
  char byte = 4;
  iovec vector{&byte, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(8 * sizeof(int))> control{};
  const msghdr message =
      messageOf(vector, std::span(control).first(CMSG_SPACE(descriptors.size() * sizeof(int))));
  cmsghdr* header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
  std::memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size() * sizeof(int));
  ASSERT_EQ(::sendmsg(socket, &message, MSG_NOSIGNAL), 1);
}

/// Sends null and `more` others.
void expectTheFirstIsKept(std::size_t more) {
  const FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const FileDescriptor zero(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  auto [one, other] = socketPair();
  std::vector<int> sent{null.get()};
  sent.insert(sent.end(), more, zero.get());
  const auto before = openDescriptors();
  sendWith(one.get(), sent);
  FrameReader reader;
  EXPECT_EQ(reader.readFrom(other.get()), State::NeedMore);
  EXPECT_EQ(openDescriptors(), before + 1) << more;
  const auto received = reader.takeDescriptor();
  ASSERT_TRUE(received);
  EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(received.get())),
            "/dev/null");
  EXPECT_FALSE(reader.takeDescriptor());
}

TEST(Control, OneDescriptorIsKeptHoweverManyCome) {
  for (const std::size_t more : {0, 1, 2, 3}) expectTheFirstIsKept(more);
}

/// Whether the system closes those that a receiver has no room for. An emulator that receives them
/// itself may lose them.
bool closesDescriptorsWithoutRoom() {
  auto [one, other] = socketPair();
  const auto before = openDescriptors();
  sendWith(one.get(), std::vector<int>(6, one.get()));
  char byte = 0;
  iovec vector{&byte, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(4 * sizeof(int))> control{};
  msghdr message = messageOf(vector, control);
  EXPECT_EQ(::recvmsg(other.get(), &message, MSG_CMSG_CLOEXEC), 1);
  const std::ptrdiff_t received = openDescriptors() - before;
  std::array<int, 4> descriptors{};
  std::memcpy(descriptors.data(), CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof descriptors);
  for (const int descriptor : descriptors) ::close(descriptor);
  return received == 4;
}

TEST(Control, OneDescriptorIsKeptIfMoreComeThanThereIsRoomFor) {
  if (testsupport::kIsEmulated && !closesDescriptorsWithoutRoom())
    GTEST_SKIP() << "descriptors without room stay open here";
  expectTheFirstIsKept(5);
}

TEST(Control, ADescriptorStaysWhileTheRestOfTheFrameComes) {
  auto [one, other] = socketPair();
  const FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const auto frame = encode(ControlRequest{Operation::Bless, "com.x", true});
  const auto before = openDescriptors();
  piecewise::limitSends({1, 2, 10});
  ASSERT_TRUE(sendFrame(one.get(), frame, null.get()));
  FrameReader reader;
  ASSERT_EQ(readAll(reader, other.get()), State::Complete);
  EXPECT_EQ(openDescriptors(), before + 1) << "it is sent once";
  EXPECT_TRUE(reader.takeDescriptor());
  EXPECT_TRUE(decodeControlRequest(reader.content()));
}

TEST(Control, EachPieceIsSentOnce) {
  auto [one, other] = socketPair();
  const auto frame = encode(ControlRequest{Operation::Bless, "com.x", true});
  piecewise::limitSends({3, 5});
  ASSERT_TRUE(sendFrame(one.get(), frame, -1));
  std::vector<std::uint8_t> got(frame.size() + 1);
  EXPECT_EQ(::recv(other.get(), got.data(), got.size(), 0), static_cast<ssize_t>(frame.size()));
  got.pop_back();
  EXPECT_EQ(got, frame);
}

TEST(Control, WithoutADescriptorNoneIsSent) {
  auto [one, other] = socketPair();
  ASSERT_TRUE(sendFrame(one.get(), encode(ControlRequest{}), -1));
  FrameReader reader;
  ASSERT_EQ(readAll(reader, other.get()), State::Complete);
  EXPECT_FALSE(reader.takeDescriptor());
}

TEST(Control, TheFirstDescriptorOfAProcessCanBeSentToo) {
  const FileDescriptor kept(::fcntl(0, F_DUPFD_CLOEXEC, 3));
  const FileDescriptor zero(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::dup2(zero.get(), 0), 0);
  auto [one, other] = socketPair();
  ASSERT_TRUE(sendFrame(one.get(), encode(ControlRequest{}), 0));
  FrameReader reader;
  ASSERT_EQ(readAll(reader, other.get()), State::Complete);
  EXPECT_TRUE(reader.takeDescriptor());
  if (kept) ::dup2(kept.get(), 0);
}

TEST(Control, WhatCannotAllBeSentFails) {
  auto [one, other] = socketPair();
  ControlReply reply;
  reply.message = std::string(std::size_t{4} << 20U, 'x');
  EXPECT_FALSE(sendFrame(one.get(), encode(reply), -1)) << "nobody reads it";
}

}  // namespace
