// The gate at the control endpoint: who gets through, for how long, and beside how many others.
#include "jobd/ControlServer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "platform/services/JobDaemon.h"
#include "platform/services/UnixSocket.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;
using platform::ControlConnection;
using platform::ControlReply;
using platform::ControlRequest;
using platform::FileDescriptor;
using platform::ServiceErrorCode;
using Operation = ControlRequest::Operation;

constexpr int patienceMilliseconds = 30'000;

/// A server on a thread of its own; all that it is given is used on that thread only.
class ServedEndpoint {
 public:
  explicit ServedEndpoint(const jobd::ControlLimits& limits = {}, bool beginsAtOnce = true)
      : directory_(::open(temporary_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
        stop_(::eventfd(0, EFD_CLOEXEC)),
        server_(
            loop_, directory_.get(),
            [this](const auto& caller, const std::string& label, const auto& decided) {
              ask(caller, label, decided);
            },
            [this](const ControlRequest& request, FileDescriptor, const auto& reply) {
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

  /// What got through to the handler, in order. Ends the server.
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
  /// "com.no" is refused, "com.later" allowed after a turn of the loop, anything else at once.
  void ask(const platform::PeerCredentials& caller, const std::string& label,
           const std::function<void(bool)>& decided) {
    const bool isWhoTheKernelNames = caller.user == ::geteuid() && caller.process == ::getpid();
    if (label == "com.later")
      later_ = loop_.after(1ms, [decided] { decided(true); });
    else
      decided(isWhoTheKernelNames && label != "com.no");
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
  return ::poll(&entry, 1, patienceMilliseconds) == 1 && ::recv(socket.get(), &c, 1, 0) <= 0;
}

bool isAnswered(const FileDescriptor& socket) {
  pollfd entry{socket.get(), POLLIN, 0};
  char c = 0;
  return ::poll(&entry, 1, patienceMilliseconds) == 1 && ::recv(socket.get(), &c, 1, 0) == 1;
}

TEST(ControlServer, LeaveCoversOneRemovalAndOneBlessOfOneJob) {
  ServedEndpoint endpoint;
  ControlConnection connection(endpoint.connect());
  EXPECT_EQ(ask(connection, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Remove, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Bless, "com.a"), ServiceErrorCode::None);
  EXPECT_EQ(ask(connection, Operation::Bless, "com.a"), ServiceErrorCode::DaemonUnavailable)
      << "the connection ended with its leave";
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
      << "one question, one leave";
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
  limits.leaveLifetime = 1ms;
  ServedEndpoint endpoint(limits);
  const auto socket = endpoint.connect();
  ControlConnection connection(FileDescriptor(::dup(socket.get())));
  EXPECT_EQ(ask(connection, Operation::Authorize, "com.a"), ServiceErrorCode::None);
  EXPECT_TRUE(isDropped(socket));
}

TEST(ControlServer, ARequestThatDoesNotComeIsNotWaitedForLong) {
  jobd::ControlLimits limits;
  limits.requestPatience = 1ms;
  ServedEndpoint endpoint(limits);
  EXPECT_TRUE(isDropped(endpoint.connect()));
}

TEST(ControlServer, AnIdleConnectionMakesRoomTheOldestFirst) {
  jobd::ControlLimits limits;
  limits.connectionsOfAUser = 3;
  limits.requestPatience = std::chrono::milliseconds(patienceMilliseconds);
  limits.leaveLifetime = std::chrono::milliseconds(patienceMilliseconds);
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
  limits.connectionsOfAUser = 2;
  limits.requestPatience = std::chrono::milliseconds(patienceMilliseconds);
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
  limits.requestPatience = std::chrono::milliseconds(patienceMilliseconds);
  ServedEndpoint endpoint(limits);
  const auto oldest = endpoint.connect();
  const auto younger = endpoint.connect();
  ControlConnection newcomer(endpoint.connect());
  EXPECT_EQ(ask(newcomer, Operation::Status, ""), ServiceErrorCode::None);
  EXPECT_TRUE(isDropped(oldest));
}

}  // namespace
