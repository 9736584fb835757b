// SPDX-License-Identifier: Apache-2.0

// Routing a device briefly, and how far it got.
#include "tool/routing/Trial.h"

#include <gtest/gtest.h>

#include "platform/scripted/ScriptedPlatform.h"
#include "router/RouterErrors.h"
#include "testkit/RouterSide.h"
#include "tests/unit/tool/FakeRouter.h"

namespace tool {
namespace {

class TrialTest : public testing::Test {
 protected:
  TrialTest() {
    platform_.setBundleCopy("com.quillmar.hideventrouter", "1.0");
    platform_.installHelper("com.quillmar.hideventrouter", "1.0");
    platform_.setLogLevel(7);
  }
  /// The trial, while a router does this after the start request.
  TrialResult tryWith(FakeRouter::Script router, std::chrono::milliseconds timeout) {
    testing::internal::CaptureStderr();
    TrialResult result;
    {
      const FakeRouter playing(platform_, std::move(router));
      result = tryDevice(0x100000123, timeout);
    }
    shown_ = testing::internal::GetCapturedStderr();
    return result;
  }
  static void sendReport(platform::ScriptedConnection& connection) {
    EXPECT_TRUE(testkit::sendReport(connection, {7}, 0));
  }

  platform::ScriptedPlatform platform_;
  std::string shown_;
};

using Statuses = std::vector<WLHIDEventRouterClientStatus>;

TEST_F(TrialTest, WithoutARouterSaysSo) {
  platform_.uninstallHelper("com.quillmar.hideventrouter");
  const TrialResult result = tryDevice(5);
  EXPECT_EQ(result.outcome, "the router is not installed, or not current");
  EXPECT_EQ(result.registryEntryID, 5U);
  EXPECT_EQ(result.statuses, Statuses{WLHIDEventRouterClientStatusRouterUnavailable});
  EXPECT_EQ(result.deliveries, 0U);
}

TEST_F(TrialTest, EndsWithTheFirstInput) {
  const TrialResult result = tryWith(
      [](auto& connection) {
        connection.deliverReply(nullptr);
        sendReport(connection);
      },
      kTrialTimeout);
  EXPECT_EQ(result.outcome, "input came");
  EXPECT_EQ(result.statuses,
            (Statuses{WLHIDEventRouterClientStatusOpening, WLHIDEventRouterClientStatusRouting}));
  EXPECT_EQ(result.deliveries, 1U);
  EXPECT_EQ(result.registryEntryID, 0x100000123U);
  const auto sent = platform_.trace().events(platform::TraceKind::Message);
  ASSERT_GE(sent.size(), 2U);
  EXPECT_EQ(sent[0].arguments, (std::vector<std::string>{"4294967587", "0", "nil", "nil"}));
  EXPECT_EQ(sent.back().name, "stopRoutingService");
}

TEST_F(TrialTest, ARefusalIsTheOutcomeWithItsReason) {
  const TrialResult result = tryWith(
      [](auto& connection) {
        connection.deliverReply(router::routerError(router::IOReturn::NoDevice, "it is gone"));
      },
      kTrialTimeout);
  EXPECT_EQ(result.outcome, "the router refuses");
  EXPECT_EQ(result.statuses.back(), WLHIDEventRouterClientStatusFailed);
  ASSERT_EQ(result.errors.size(), 1U);
  EXPECT_EQ(result.errors[0], "it is gone (HIDEventRouterDomain -536870208)");
}

TEST_F(TrialTest, ItsPatienceEnds) {
  const TrialResult result = tryWith([](auto& connection) { connection.deliverReply(nullptr); },
                                     std::chrono::milliseconds(20));
  EXPECT_EQ(result.outcome, "no input within 20 ms");
  EXPECT_EQ(result.deliveries, 0U);
}

TEST_F(TrialTest, EveryLineIsLoggedAndOnlyTheUsersLevelShown) {
  std::uint64_t during = 99;
  static_cast<void>(tryWith(
      [&](auto& connection) {
        during = platform::KQLogger::logLevel();
        connection.deliverReply(nullptr);
        sendReport(connection);
      },
      kTrialTimeout));
  EXPECT_EQ(during, 0U);
  EXPECT_EQ(platform::KQLogger::logLevel(), 7U);
  EXPECT_EQ(shown_, "");
  platform_.setLogLevel(3);
  testing::internal::CaptureStderr();
  platform_.uninstallHelper("com.quillmar.hideventrouter");
  static_cast<void>(tryDevice(5));
  platform::KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
      3, "f", "p", 1, nullptr, "at\nthe level");
  platform::KQLogger::setLogLevel(0);
  platform::KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
      2, "f", "p", 1, nullptr, "a late one");
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_NE(shown.find("at\\x0athe level\n"), std::string::npos) << shown;
  EXPECT_EQ(shown.find("a late one"), std::string::npos) << shown;
}

}  // namespace
}  // namespace tool
