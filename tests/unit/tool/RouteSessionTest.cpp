// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/RouteSession.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/RouterErrors.h"

namespace tool {
namespace {

/// A session whose lines go to a pipe. The client is always null: the end-to-end tests cover what
/// the session does with one.
class RouteSessionTest : public testing::Test {
 protected:
  void SetUp() override {
    std::signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(::pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0);
  }
  void TearDown() override {
    closeReader();
    ::close(ends_[1]);
  }

  std::unique_ptr<RouteSession> session(std::optional<std::uint64_t> last) {
    return std::make_unique<RouteSession>(jsonDeliveryLines(), ends_[1], last);
  }
  std::string printed() {
    std::array<char, 4096> buffer;
    const ssize_t count = ::read(ends_[0], buffer.data(), buffer.size());
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
  }
  void closeReader() {
    if (ends_[0] >= 0) ::close(ends_[0]);
    ends_[0] = -1;
  }
  static void report(RouteSession& session, std::uint8_t byte) {
    session.hidEventRouterClient_receivedReportData_reportID(
        nullptr, platform::NSData::dataWithBytes(std::array<std::uint8_t, 1>{byte}), 0);
  }
  static void values(RouteSession& session) {
    session.hidEventRouterClient_receivedElementValues(nullptr, platform::elementValueArray({}));
  }
  static bool isAwake(const RouteSession& session) {
    pollfd wake{session.wakeDescriptor(), POLLIN, 0};
    return ::poll(&wake, 1, 0) == 1;
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

constexpr const char* kReport7 = "{\"report\":{\"id\":0,\"data\":\"07\"}}\n";
constexpr const char* kNoValues = "{\"elements\":[]}\n";

TEST_F(RouteSessionTest, EndsAtTheValuesOfTheLastReport) {
  const auto s = session(1);
  report(*s, 7);
  EXPECT_FALSE(s->ended());
  values(*s);
  EXPECT_TRUE(s->ended());
  EXPECT_EQ(printed(), std::string(kReport7) + kNoValues);
}

TEST_F(RouteSessionTest, EarlierValuesEndNothing) {
  const auto s = session(2);
  report(*s, 7);
  values(*s);
  EXPECT_FALSE(s->ended());
}

TEST_F(RouteSessionTest, WhereItIsNotKnownWhetherValuesFollowTheNextReportEndsItUnprinted) {
  const auto s = session(1);
  report(*s, 7);
  EXPECT_TRUE(s->lastReportSeen());
  EXPECT_TRUE(isAwake(*s));
  EXPECT_FALSE(s->ended());
  report(*s, 8);
  EXPECT_TRUE(s->ended());
  EXPECT_EQ(printed(), kReport7);
}

TEST_F(RouteSessionTest, PrintsNothingOnceItHasEnded) {
  const auto s = session(std::nullopt);
  s->end(nullptr, {});
  report(*s, 7);
  values(*s);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusRouting);
  s->hidEventRouterClient_handleError(
      nullptr, platform::NSError::errorWithDomain_code_userInfo(platform::str("d"), 1, nullptr));
  EXPECT_EQ(printed(), "");
}

TEST_F(RouteSessionTest, NilFromARouterIsPassedOver) {
  const auto s = session(1);
  s->hidEventRouterClient_receivedReportData_reportID(nullptr, nullptr, 0);
  s->hidEventRouterClient_receivedElementValues(nullptr, nullptr);
  EXPECT_EQ(printed(), "");
  EXPECT_FALSE(s->ended());
  report(*s, 7);
  EXPECT_EQ(printed(), kReport7);
}

TEST_F(RouteSessionTest, KeepsTheFirstEnd) {
  const auto s = session(std::nullopt);
  s->end(nullptr, {true, "first"});
  s->end(nullptr, {false, ""});
  EXPECT_TRUE(s->howItEnded().failed);
  EXPECT_EQ(s->howItEnded().message, "first");
}

TEST_F(RouteSessionTest, ARefusalIsPrintedAndEndsItAsAFailure) {
  const auto s = session(std::nullopt);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusFailed);
  EXPECT_FALSE(s->ended());
  s->hidEventRouterClient_handleError(
      nullptr, platform::NSError::errorWithDomain_code_userInfo(platform::str("d"), -9, nullptr));
  EXPECT_TRUE(s->ended());
  EXPECT_TRUE(s->howItEnded().failed);
  EXPECT_EQ(s->howItEnded().message, "the router refused: d -9");
  EXPECT_EQ(printed(), "{\"status\":3}\n{\"error\":{\"domain\":\"d\",\"code\":-9}}\n");
}

TEST_F(RouteSessionTest, ARecordingThatHasEndedEndsItInOrder) {
  const auto s = session(std::nullopt);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusOpening);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusRouting);
  report(*s, 7);
  // The client has asked again and gets an answer.
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusOpening);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusFailed);
  s->hidEventRouterClient_handleError(
      nullptr, router::routerError(router::IOReturn::Underrun, "it is over"));
  EXPECT_TRUE(s->ended());
  EXPECT_FALSE(s->howItEnded().failed);
  EXPECT_EQ(printed(), std::string("{\"status\":2}\n{\"status\":4}\n") + kReport7 +
                           "{\"ended\":\"it is over\"}\n");
}

TEST_F(RouteSessionTest, WhatWasHeldBackIsPrintedWhereItWasNoEnd) {
  const auto s = session(std::nullopt);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusRouting);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusOpening);
  EXPECT_EQ(printed(), "{\"status\":4}\n");
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusRouting);
  EXPECT_EQ(printed(), "{\"status\":2}\n{\"status\":4}\n");
  s->hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusFailed);
  s->hidEventRouterClient_handleError(
      nullptr,
      platform::NSError::errorWithDomain_code_userInfo(
          platform::str("d"), static_cast<std::int64_t>(router::IOReturn::Underrun), nullptr));
  EXPECT_TRUE(s->howItEnded().failed) << "the code alone, in another domain, says nothing";
  EXPECT_EQ(printed(), "{\"status\":3}\n{\"error\":{\"domain\":\"d\",\"code\":-536870169}}\n");
}

TEST_F(RouteSessionTest, ARouterThatIsGoneEndsItAsAFailure) {
  const auto s = session(std::nullopt);
  s->hidEventRouterClient_clientStatusChangedTo(nullptr,
                                                WLHIDEventRouterClientStatusRouterUnavailable);
  EXPECT_TRUE(s->howItEnded().failed);
  EXPECT_EQ(printed(), "{\"status\":1}\n");
}

TEST_F(RouteSessionTest, AReaderThatGoesAwayEndsItInOrder) {
  const auto s = session(std::nullopt);
  closeReader();
  report(*s, 7);
  EXPECT_TRUE(s->ended());
  EXPECT_FALSE(s->howItEnded().failed);
}

TEST(RouteSessionOutput, ADiskThatIsFullIsAFailure) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  RouteSession s(jsonDeliveryLines(), full, std::nullopt);
  s.hidEventRouterClient_clientStatusChangedTo(nullptr, WLHIDEventRouterClientStatusOpening);
  EXPECT_TRUE(s.howItEnded().failed);
  EXPECT_EQ(s.howItEnded().message, "cannot write to standard output: No space left on device");
  ::close(full);
}

}  // namespace
}  // namespace tool
