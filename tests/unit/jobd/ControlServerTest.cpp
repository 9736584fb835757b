// SPDX-License-Identifier: Apache-2.0

// Access to the control endpoint: who gets through, for how long, and along with how many others.
#include "jobd/ControlServer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;
using platform::ControlConnection;
using platform::ControlReply;
using platform::ControlRequest;
using platform::FileDescriptor;
using platform::ServiceErrorCode;
using Kind = jobd::Decision::Kind;
using Operation = ControlRequest::Operation;

constexpr int kTimeoutMilliseconds = 30'000;

/// A server on its own thread; everything passed to it is used on that thread only.
class ServedEndpoint {
 public:
  explicit ServedEndpoint(const jobd::ControlLimits& limits = {}, bool beginsAtOnce = true)
      : directory_(::open(temporary_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
        stop_(::eventfd(0, EFD_CLOEXEC)),
        server_(
            loop_, directory_.get(),
            [this](const jobd::Question& question, const auto& decided) { ask(question, decided); },
            [this](const auto&, const ControlRequest& request, FileDescriptor, const auto& reply) {
              handled_.push_back(request.label);
              reply(jobd::controlReply());
            },
            nullptr, limits),
        stopWatch_(loop_.watch(stop_.get(), EPOLLIN, [this] { loop_.stop(); })) {
    if (beginsAtOnce) begin();
  }
  void begin() {
    thread_ = std::thread([this] { loop_.run(); });
  }

  /// The requests that reached the handler, in order. Ends the server.
  std::vector<std::string> end() {
    if (thread_.joinable()) {
      ::eventfd_write(stop_.get(), 1);
      thread_.join();
    }
    return handled_;
  }
  ServedEndpoint(const ServedEndpoint&) = delete;
  ServedEndpoint& operator=(const ServedEndpoint&) = delete;
  ~ServedEndpoint() { end(); }

  [[nodiscard]] FileDescriptor connect() const {
    return platform::connectUnixSocketAt(directory_.get(), "jobd.sock", SOCK_STREAM);
  }

 private:
  /// "com.no" is refused, "com.later" allowed an iteration later, anything else at once.
  void ask(const jobd::Question& question, const jobd::Decided& decided) {
    const auto& [caller, label, right, prompt, change, presence] = question;
    const bool isWhoTheKernelNames = caller.user == ::geteuid() && caller.process == ::getpid();
    if (label == "com.later")
      later_ = loop_.after(1ms, [decided] { decided({Kind::Yes, {}}); });
    else if (label == "com.canceled")
      decided({Kind::Canceled, "not said"});
    else if (label == "com.alone")
      decided({Kind::InteractionNotAllowed, "there is no agent"});
    else if (label == "com.why")
      decided({Kind::No, right == jobd::Right::Remove ? "no removal: " + prompt : prompt});
    else
      decided({isWhoTheKernelNames && label != "com.no" ? Kind::Yes : Kind::No, {}});
  }

  testsupport::TemporaryDirectory temporary_;
  FileDescriptor directory_;
  FileDescriptor stop_;
  jobd::EventLoop loop_;
  std::vector<std::string> handled_;
  jobd::EventLoop::Token later_;
  jobd::ControlServer server_;
  jobd::EventLoop::Token stopWatch_;
  std::thread thread_;
};

ServiceErrorCode ask(ControlConnection& connection, Operation operation, const std::string& label) {
  const auto reply = connection.tryAsk({operation, label, true}, -1);
  return reply ? reply->code : ServiceErrorCode::DaemonUnavailable;
}

bool isDropped(const FileDescriptor& socket) {
  pollfd entry{socket.get(), POLLIN, 0};
  char c = 0;
  return ::poll(&entry, 1, kTimeoutMilliseconds) == 1 && ::recv(socket.get(), &c, 1, 0) <= 0;
}

bool isAnswered(const FileDescriptor& socket) {
  pollfd entry{socket.get(), POLLIN, 0};
  char c = 0;
  return ::poll(&entry, 1, kTimeoutMilliseconds) == 1 && ::recv(socket.get(), &c, 1, 0) == 1;
}

TEST(ControlServer, LeaveCoversOneRemovalAndOneBlessOfOneJob) {
  ServedEndpoint endpoint;
  ControlConnection connection(endpoint.connect());
  EXPECT_EQ(ask(connection, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Remove, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Bless, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Bless, "com.a"), ServiceErrorCode::DaemonUnavailable)
      << "the connection ended with its permission";
  EXPECT_THAT(endpoint.end(), testing::ElementsAre("com.a", "com.a"));
}

TEST(ControlServer, WhatALeaveDoesNotCoverEndsIt) {
  using Steps = std::vector<std::pair<Operation, std::string>>;
  for (const Steps& covered :
       {Steps{}, Steps{{Operation::Remove, "com.a"}}, Steps{{Operation::Status, ""}}}) {
    for (const auto& [operation, label] :
         Steps{{Operation::Remove, "com.b"}, {Operation::Bless, "com.b"}}) {
      ServedEndpoint endpoint;
      ControlConnection connection(endpoint.connect());
      EXPECT_EQ(ask(connection, Operation::Authorize, "com.a"), ServiceErrorCode::None);
      for (const auto& step : covered)
        EXPECT_EQ(ask(connection, step.first, step.second), ServiceErrorCode::None);
      EXPECT_EQ(ask(connection, operation, label), ServiceErrorCode::NotPermitted);
      EXPECT_EQ(ask(connection, Operation::Bless, "com.a"), ServiceErrorCode::DaemonUnavailable);
      EXPECT_EQ(endpoint.end().size(), covered.size());
    }
  }
}

TEST(ControlServer, ASecondRemovalIsNotCovered) {
  ServedEndpoint endpoint;
  ControlConnection connection(endpoint.connect());
  EXPECT_EQ(ask(connection, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Remove, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Remove, "com.a"), ServiceErrorCode::NotPermitted);
  EXPECT_EQ(endpoint.end().size(), 1U);
}

TEST(ControlServer, WithoutLeaveNothingIsChanged) {
  ServedEndpoint endpoint;
  for (const auto operation : {Operation::Remove, Operation::Bless}) {
    ControlConnection connection(endpoint.connect());
    EXPECT_EQ(ask(connection, operation, "com.a"), ServiceErrorCode::NotPermitted);
  }
  ControlConnection refused(endpoint.connect());
  EXPECT_EQ(ask(refused, Operation::Authorize, "com.no"), ServiceErrorCode::NotPermitted);
  ControlConnection invalid(endpoint.connect());
  EXPECT_EQ(ask(invalid, Operation::Authorize, "../a"), ServiceErrorCode::InvalidArgument);
  EXPECT_THAT(endpoint.end(), testing::IsEmpty());
}

TEST(ControlServer, LeaveOfOneConnectionIsNoneOfAnother) {
  ServedEndpoint endpoint;
  ControlConnection one(endpoint.connect());
  ControlConnection other(endpoint.connect());
  EXPECT_EQ(ask(one, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(other, Operation::Bless, "com.a"), ServiceErrorCode::NotPermitted);
  EXPECT_EQ(ask(one, Operation::Authorize, "com.b"), ServiceErrorCode::NotPermitted)
      << "one permission per question";
  EXPECT_THAT(endpoint.end(), testing::IsEmpty());
}

TEST(ControlServer, AnAuthorityMayTakeItsTime) {
  ServedEndpoint endpoint;
  ControlConnection connection(endpoint.connect());
  EXPECT_EQ(ask(connection, Operation::Authorize, "com.later"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Bless, "com.later"), ServiceErrorCode::None);
  EXPECT_THAT(endpoint.end(), testing::ElementsAre("com.later"));
}

TEST(ControlServer, ALeaveRunsOut) {
  jobd::ControlLimits limits;
  limits.permissionLifetime = 1ms;
  ServedEndpoint endpoint(limits);
  const auto socket = endpoint.connect();
  ControlConnection connection(FileDescriptor(::dup(socket.get())));
  EXPECT_EQ(ask(connection, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  EXPECT_TRUE(isDropped(socket));
}

TEST(ControlServer, ARequestThatDoesNotComeIsNotWaitedForLong) {
  jobd::ControlLimits limits;
  limits.requestTimeout = 1ms;
  ServedEndpoint endpoint(limits);
  EXPECT_TRUE(isDropped(endpoint.connect()));
}

TEST(ControlServer, AnIdleConnectionMakesRoomTheOldestFirst) {
  jobd::ControlLimits limits;
  limits.connectionsPerUser = 3;
  limits.requestTimeout = std::chrono::milliseconds(kTimeoutMilliseconds);
  limits.permissionLifetime = std::chrono::milliseconds(kTimeoutMilliseconds);
  ServedEndpoint endpoint(limits);
  ControlConnection withLeave(endpoint.connect());
  EXPECT_EQ(ask(withLeave, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  const auto oldest = endpoint.connect();
  const auto younger = endpoint.connect();
  ControlConnection newcomer(endpoint.connect());
  EXPECT_EQ(ask(newcomer, Operation::Status, ""), ServiceErrorCode::None);
  EXPECT_TRUE(isDropped(oldest));
  pollfd entry{younger.get(), POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 0), 0);
  EXPECT_EQ(ask(withLeave, Operation::Bless, "com.a"), ServiceErrorCode::None);
}

TEST(ControlServer, WhoeverHasSentARequestIsAnsweredBeforeThereIsRoomForANewcomer) {
  jobd::ControlLimits limits;
  limits.connectionsPerUser = 2;
  limits.requestTimeout = std::chrono::milliseconds(kTimeoutMilliseconds);
  ServedEndpoint endpoint(limits, /*beginsAtOnce=*/false);
  const auto request = encode(ControlRequest{});
  const auto half = endpoint.connect();
  ASSERT_TRUE(platform::sendFrame(half.get(), std::span(request).first(7), -1));
  std::vector<FileDescriptor> whole;
  for (int i = 0; i < 4; ++i) {
    whole.push_back(endpoint.connect());
    ASSERT_TRUE(platform::sendFrame(whole.back().get(), request, -1));
  }
  const auto younger = endpoint.connect();
  const auto youngest = endpoint.connect();
  endpoint.begin();
  for (const auto& socket : whole) EXPECT_TRUE(isAnswered(socket));
  EXPECT_TRUE(isDropped(half));
  EXPECT_EQ(endpoint.end().size(), whole.size());
}

TEST(ControlServer, AllUsersTogetherHaveALimitToo) {
  jobd::ControlLimits limits;
  limits.connections = 2;
  limits.requestTimeout = std::chrono::milliseconds(kTimeoutMilliseconds);
  ServedEndpoint endpoint(limits);
  const auto oldest = endpoint.connect();
  const auto younger = endpoint.connect();
  ControlConnection newcomer(endpoint.connect());
  EXPECT_EQ(ask(newcomer, Operation::Status, ""), ServiceErrorCode::None);
  EXPECT_TRUE(isDropped(oldest));
}

std::string refusal(ControlConnection& connection, Operation operation, const std::string& label) {
  const auto reply = connection.tryAsk({operation, label, true}, -1);
  return reply ? reply->message : "hung up";
}

TEST(ControlServer, ARefusalSaysWhy) {
  ServedEndpoint endpoint;
  ControlConnection without(endpoint.connect());
  EXPECT_EQ(refusal(without, Operation::Bless, "com.a"),
            "this change is not authorized, or its authorization has been used up");
  ControlConnection refused(endpoint.connect());
  EXPECT_EQ(refusal(refused, Operation::Authorize, "com.no"),
            "the caller may not change the job com.no");
  ControlConnection invalid(endpoint.connect());
  EXPECT_EQ(refusal(invalid, Operation::Authorize, "../a"), "this is not a valid job label");
  ControlConnection twice(endpoint.connect());
  EXPECT_EQ(refusal(twice, Operation::Authorize, "com.a"), "");
  EXPECT_EQ(refusal(twice, Operation::Authorize, "com.a"),
            "this connection has already had its authorization");
  EXPECT_EQ(refusal(twice, Operation::Bless, "com.a"), "hung up");
}

TEST(ControlServer, EveryReplyNamesTheDaemon) {
  ServedEndpoint endpoint;
  ControlConnection connection(endpoint.connect());
  const auto reply = connection.tryAsk({}, -1);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->daemonProcessIdentifier, ::getpid());
  const auto failed = jobd::controlReply(ServiceErrorCode::Busy, "not now");
  EXPECT_EQ(failed.code, ServiceErrorCode::Busy);
  EXPECT_EQ(failed.message, "not now");
}

TEST(ControlServer, LimitsAreThoseThatCallersRelyOn) {
  const jobd::ControlLimits limits;
  EXPECT_EQ(limits.connections, 64U);
  EXPECT_EQ(limits.connectionsPerUser, 16U);
  EXPECT_EQ(limits.requestTimeout.count(), 5'000);
  EXPECT_EQ(limits.permissionLifetime.count(), 10'000);
}

/// Whether the first of `count` idle connections is dropped for the last.
bool makesRoom(const jobd::ControlLimits& limits, std::size_t count) {
  ServedEndpoint endpoint(limits);
  std::vector<FileDescriptor> idle;
  for (std::size_t i = 0; i + 1 < count; ++i) idle.push_back(endpoint.connect());
  ControlConnection last(endpoint.connect());
  EXPECT_EQ(ask(last, Operation::Status, ""), ServiceErrorCode::None);
  pollfd entry{idle.front().get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

TEST(ControlServer, SoManyConnectionsAreKept) {
  jobd::ControlLimits limits;
  limits.requestTimeout = std::chrono::milliseconds(kTimeoutMilliseconds);
  limits.connectionsPerUser = 4;
  EXPECT_FALSE(makesRoom(limits, 4));
  EXPECT_TRUE(makesRoom(limits, 5));
  limits.connectionsPerUser = 16;
  limits.connections = 4;
  EXPECT_FALSE(makesRoom(limits, 4));
  EXPECT_TRUE(makesRoom(limits, 5));
}

TEST(ControlServer, AmongIdleConnectionsOneWithALeaveStaysLongest) {
  jobd::ControlLimits limits;
  limits.connectionsPerUser = 2;
  limits.requestTimeout = std::chrono::milliseconds(kTimeoutMilliseconds);
  limits.permissionLifetime = std::chrono::milliseconds(kTimeoutMilliseconds);
  ServedEndpoint endpoint(limits);
  const auto older = endpoint.connect();
  const auto younger = endpoint.connect();
  ControlConnection olderWithLeave(FileDescriptor(::dup(older.get())));
  ControlConnection youngerWithLeave(FileDescriptor(::dup(younger.get())));
  EXPECT_EQ(ask(olderWithLeave, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(youngerWithLeave, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  ControlConnection newcomer(endpoint.connect());
  EXPECT_EQ(ask(newcomer, Operation::Status, ""), ServiceErrorCode::None);
  EXPECT_TRUE(isDropped(older)) << "if all have one, the oldest";
  EXPECT_EQ(ask(youngerWithLeave, Operation::Bless, "com.a"), ServiceErrorCode::None);
}

ControlReply reply(const ServedEndpoint& endpoint, const ControlRequest& request) {
  return ControlConnection(endpoint.connect()).tryAsk(request, -1).value_or(ControlReply{});
}

TEST(ControlServer, WhyNotIsWhatTheAuthoritySays) {
  const ServedEndpoint endpoint;
  const auto canceled = reply(endpoint, {Operation::Authorize, "com.canceled"});
  EXPECT_EQ(canceled.code, ServiceErrorCode::Canceled);
  EXPECT_EQ(canceled.message, "the question was dismissed");
  const auto alone = reply(endpoint, {Operation::Authorize, "com.alone"});
  EXPECT_EQ(alone.code, ServiceErrorCode::InteractionNotAllowed);
  EXPECT_EQ(
      alone.message,
      "a person has to allow changing the job com.alone, and nobody can be asked: there is no "
      "agent");
  const auto no = reply(
      endpoint, {Operation::Authorize, "com.why", true, platform::ChangePurpose::Remove, "please"});
  EXPECT_EQ(no.code, ServiceErrorCode::NotPermitted);
  EXPECT_EQ(no.message, "the caller may not change the job com.why: no removal: please");
  EXPECT_EQ(reply(endpoint, {Operation::Authorize, "com.why", true,
                             platform::ChangePurpose::Install, "please"})
                .message,
            "the caller may not change the job com.why: please");
}

TEST(ControlServer, PermissionToRemoveCoversNoBless) {
  const ServedEndpoint endpoint;
  ControlConnection one(endpoint.connect());
  const auto asked =
      one.tryAsk({Operation::Authorize, "com.a", true, platform::ChangePurpose::Remove}, -1);
  ASSERT_TRUE(asked && asked->succeeded());
  EXPECT_EQ(ask(one, Operation::Bless, "com.a"), ServiceErrorCode::NotPermitted);
  const auto socket = endpoint.connect();
  ControlConnection other(FileDescriptor(::dup(socket.get())));
  static_cast<void>(
      other.tryAsk({Operation::Authorize, "com.a", true, platform::ChangePurpose::Remove}, -1));
  EXPECT_EQ(ask(other, Operation::Remove, "com.a"), ServiceErrorCode::None);
  EXPECT_TRUE(isDropped(socket)) << "it is used up";
}

/// A server whose loop is run by the test itself.
class TurnedServer : public testing::Test {
 protected:
  [[nodiscard]] FileDescriptor connect() const {
    return platform::connectUnixSocketAt(directory_.get(), "jobd.sock", SOCK_STREAM);
  }
  /// Runs iterations of the loop; each handles pending input before it checks its timers.
  void turn(int times = 10) {
    jobd::EventLoop::Token next;
    std::function<void()> count = [&] {
      if (--times == 0)
        loop_.stop();
      else
        next = loop_.after(0ms, count);
    };
    next = loop_.after(0ms, count);
    loop_.run();
  }
  [[nodiscard]] std::filesystem::path path() const { return temporary_.path() / "jobd.sock"; }

  testsupport::TemporaryDirectory temporary_;
  FileDescriptor directory_{::open(temporary_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  jobd::EventLoop loop_;
  int quiet_ = 0;
  bool hadDescriptor_ = false;
  jobd::ControlServer server_{
      loop_, directory_.get(),
      [](const auto&, const auto& decided) {
        decided({Kind::Yes, {}});
      },
      [this](const auto&, const ControlRequest&, FileDescriptor descriptor, const auto& reply) {
        hadDescriptor_ = static_cast<bool>(descriptor);
        reply(jobd::controlReply());
      },
      [this] { ++quiet_; }};
};

TEST_F(TurnedServer, SaysWhenTheLastHasGone) {
  auto one = connect();
  auto other = connect();
  EXPECT_TRUE(server_.isQuiet()) << "none has been accepted yet";
  jobd::EventLoop::Token next;
  next = loop_.after(0ms, [&] {
    EXPECT_FALSE(server_.isQuiet());
    one.reset();
    next = loop_.after(0ms, [&] {
      EXPECT_EQ(quiet_, 0) << "one is still open";
      other.reset();
      next = loop_.after(0ms, [&] { loop_.stop(); });
    });
  });
  loop_.run();
  EXPECT_EQ(quiet_, 1);
  EXPECT_TRUE(server_.isQuiet());
}

TEST_F(TurnedServer, HandsOnTheDescriptorOfARequest) {
  const auto caller = connect();
  ASSERT_TRUE(platform::sendFrame(caller.get(), encode(ControlRequest{}), directory_.get()));
  turn();
  EXPECT_TRUE(hadDescriptor_);
}

TEST_F(TurnedServer, IsOpenToItsOwnerAlone) {
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(TurnedServer, ClosesWhenNobodyIsThere) {
  EXPECT_TRUE(server_.isInPlace());
  EXPECT_TRUE(server_.closeIfUnused());
  EXPECT_FALSE(server_.isInPlace());
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(TurnedServer, StaysOpenForWhoeverConnectedBefore) {
  const auto caller = connect();
  ASSERT_TRUE(caller);
  EXPECT_FALSE(server_.closeIfUnused());
  EXPECT_TRUE(server_.isInPlace());
  const auto another = connect();
  ASSERT_TRUE(another);
  for (const auto* each : {&caller, &another})
    ASSERT_TRUE(platform::sendFrame(each->get(), encode(ControlRequest{}), -1));
  turn();
  EXPECT_TRUE(isAnswered(caller));
  EXPECT_TRUE(isAnswered(another));
}

TEST_F(TurnedServer, AnothersEndpointInItsPlaceIsLeftAlone) {
  const auto other =
      platform::listenUnixSocketAt(directory_.get(), "jobd.sock", SOCK_STREAM, 8, 0600);
  EXPECT_FALSE(server_.isInPlace());
  server_.removeEndpoint();
  EXPECT_TRUE(std::filesystem::exists(path()));
}

TEST_F(TurnedServer, AnEndpointThatCannotBeOpenedIsNamed) {
  const FileDescriptor none;
  try {
    const jobd::ControlServer another(loop_, none.get(), nullptr, nullptr, nullptr);
    ADD_FAILURE() << "opened";
  } catch (const platform::ServiceError& error) {
    EXPECT_EQ(error.code(), ServiceErrorCode::FileSystem);
    EXPECT_THAT(error.what(), testing::StartsWith("cannot open the control endpoint: "));
  }
}

}  // namespace
