// SPDX-License-Identifier: Apache-2.0

#include "platform/services/JobDaemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <thread>

#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceError.h"
#include "tests/support/OtherUser.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::FileDescriptor;
using platform::FrameReader;

FrameReader::State readRequest(const FileDescriptor& socket) {
  FrameReader reader;
  for (;;) {
    const auto state = reader.readFrom(socket.get());
    if (state != FrameReader::State::NeedMore) return state;
  }
}

/// A daemon that closes `hangUps` connections before it answers one.
void serve(const FileDescriptor& endpoint, int hangUps) {
  for (int i = 0; i <= hangUps; ++i) {
    const FileDescriptor socket(::accept4(endpoint.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (i < hangUps || readRequest(socket) != FrameReader::State::Complete) continue;
    platform::ControlReply reply;
    reply.daemonProcessIdentifier = 42;
    EXPECT_TRUE(platform::sendFrame(socket.get(), encode(reply), -1));
  }
}

class AnsweringDaemon : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(root_.controlEndpoint().parent_path());
    endpoint_.reset(
        platform::listenUnixSocket(root_.controlEndpoint().string(), SOCK_STREAM, 8, 0600));
    ASSERT_TRUE(endpoint_);
  }
  /// The result of `ask` with a daemon that closes `hangUps` connections and then answers one.
  template <class Ask>
  auto answered(int hangUps, const Ask& ask) {
    struct Daemon {
      int endpoint;
      std::thread thread;
      ~Daemon() {
        ::shutdown(endpoint, SHUT_RDWR);  // if there were too few requests
        thread.join();
      }
    };
    const Daemon daemon{endpoint_.get(), std::thread([&] { serve(endpoint_, hangUps); })};
    return ask();
  }
  const testsupport::TemporaryDirectory temporary_;
  const platform::SystemRoot root_ = platform::SystemRoot(temporary_.path() / "root");
  FileDescriptor endpoint_;
};

TEST_F(AnsweringDaemon, WhoeverIsHungUpOnAsksForTheStatusAgain) {
  const auto status = answered(2, [&] { return platform::JobDaemon(root_).status(); });
  ASSERT_TRUE(status);
  EXPECT_EQ(status->daemonProcessIdentifier, 42);
}

TEST_F(AnsweringDaemon, ARequestConnectsOnce) {
  const auto reply =
      answered(0, [&] { return platform::JobDaemon(root_).ask(platform::ControlRequest{}, -1); });
  EXPECT_EQ(reply.daemonProcessIdentifier, 42);
}

/// Makes another user's process listen on an endpoint.
pid_t listenAsAnotherUser(const std::filesystem::path& path) {
  const FileDescriptor bound(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  std::array<int, 2> listens{};
  if (::pipe(listens.data()) != 0 ||
      ::bind(bound.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(testsupport::kOtherUser) != 0 || ::listen(bound.get(), 8) != 0) ::_exit(1);
    ::close(listens[1]);
    for (;;) ::pause();
  }
  ::close(listens[1]);
  char byte = 0;
  const bool isReady = ::read(listens[0], &byte, 1) == 0;  // closed by the child
  ::close(listens[0]);
  return isReady ? child : -1;
}

TEST(JobDaemon, OfAnotherUserIsNotAsked) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser can become another user";
  const testsupport::TemporaryDirectory temporary;
  const platform::SystemRoot root(temporary.path() / "root");
  std::filesystem::create_directories(root.controlEndpoint().parent_path());
  const pid_t daemon = listenAsAnotherUser(root.controlEndpoint());
  ASSERT_GT(daemon, 0);
  try {
    static_cast<void>(platform::JobDaemon(root).status());
    ADD_FAILURE() << "it was asked";
  } catch (const platform::ServiceError& error) {
    EXPECT_EQ(error.code(), platform::ServiceErrorCode::NotPermitted) << error.what();
  }
  ::kill(daemon, SIGKILL);
  ::waitpid(daemon, nullptr, 0);
}

/// The status from a daemon that closes `hangUps` connections first.
std::optional<platform::ControlReply> statusAfterHangUps(int hangUps) {
  const testsupport::TemporaryDirectory temporary;
  const platform::SystemRoot root(temporary.path() / "root");
  std::filesystem::create_directories(root.controlEndpoint().parent_path());
  const FileDescriptor endpoint(
      platform::listenUnixSocket(root.controlEndpoint().string(), SOCK_STREAM, 8, 0600));
  std::thread daemon([&] { serve(endpoint, hangUps); });
  auto status = platform::JobDaemon(root).status();
  ::shutdown(endpoint.get(), SHUT_RDWR);
  daemon.join();
  return status;
}

TEST(JobDaemon, TheStatusIsAskedForThreeTimesAtMost) {
  EXPECT_TRUE(statusAfterHangUps(0));
  EXPECT_FALSE(statusAfterHangUps(3));
}

TEST(JobDaemon, WithoutOneThereIsNoStatus) {
  const testsupport::TemporaryDirectory temporary;
  const platform::SystemRoot root(temporary.path() / "root");
  EXPECT_FALSE(platform::JobDaemon(root).status());
  std::filesystem::create_directories(root.path());
  EXPECT_FALSE(platform::JobDaemon(root).status());
  std::filesystem::create_directories(root.controlEndpoint().parent_path());
  EXPECT_FALSE(platform::JobDaemon(root).status());
}

/// The error that a request throws if these bytes are the reply.
platform::ServiceError failureOf(const std::vector<std::uint8_t>& answer) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  platform::ControlConnection connection{FileDescriptor(ends[0])};
  const FileDescriptor daemon(ends[1]);
  EXPECT_EQ(::send(daemon.get(), answer.data(), answer.size(), 0),
            static_cast<ssize_t>(answer.size()));
  ::shutdown(daemon.get(), SHUT_WR);
  try {
    static_cast<void>(connection.ask(platform::ControlRequest{}, -1));
  } catch (const platform::ServiceError& error) {
    return error;
  }
  return {platform::ServiceErrorCode::None, "it was read"};
}

TEST(ControlConnection, AnAnswerThatIsNoneIsNamed) {
  using Code = platform::ServiceErrorCode;
  EXPECT_EQ(failureOf(encode(platform::ControlReply{})).code(), Code::None);
  for (const auto& malformed : {std::vector<std::uint8_t>{0, 0, 0, 0}, {0, 0, 0, 1}}) {
    EXPECT_EQ(failureOf(malformed).code(), Code::Protocol);
    EXPECT_STREQ(failureOf(malformed).what(), "the job daemon's reply is malformed");
  }
  EXPECT_EQ(failureOf({1, 0, 0, 0, 'x'}).code(), Code::Protocol);
  EXPECT_STREQ(failureOf({1, 0, 0, 0, 'x'}).what(), "the job daemon's reply cannot be read");
  for (const auto& cut : {std::vector<std::uint8_t>{}, {1, 0}, {2, 0, 0, 0, 'x'}}) {
    EXPECT_EQ(failureOf(cut).code(), Code::DaemonUnavailable);
    EXPECT_STREQ(failureOf(cut).what(),
                 "the job daemon closed the connection before it answered; try again");
  }
}

TEST(ControlConnection, HasEndedWhenTheDaemonHungUp) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  platform::ControlConnection connection{FileDescriptor(ends[0])};
  EXPECT_FALSE(connection.hasEnded());
  ::close(ends[1]);
  EXPECT_TRUE(connection.hasEnded());
  EXPECT_FALSE(connection.tryAsk(platform::ControlRequest{}, -1)) << "it cannot even be sent";
}

}  // namespace
