#include "platform/services/Control.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cstring>

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
  reply.message = "the helper is none";
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
       {0U, static_cast<std::uint32_t>(maximumControlBytes) + 1, 0xFFFFFFFFU}) {
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

}  // namespace
