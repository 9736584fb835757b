// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/ClientLogWatch.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/kit/KQLogger.h"

namespace tool {
namespace {

using platform::KQLogger;

/// Restores the log level.
class ClientLogWatchTest : public testing::Test {
 protected:
  ~ClientLogWatchTest() override { KQLogger::setLogLevel(before_); }

  static void log(std::uint64_t level, std::string_view format, const std::string& argument = "") {
    KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
        level, "function", "path", 1, nullptr, format, argument);
  }
  std::vector<std::string> heard;
  const ClientLogWatch::Handler hear = [this](const std::string& what) { heard.push_back(what); };

 private:
  const std::uint64_t before_ = KQLogger::logLevel();
};

TEST_F(ClientLogWatchTest, HearsOfAnInterruptionAndOfALostStart) {
  KQLogger::setLogLevel(4);
  const ClientLogWatch watch(hear);
  log(3, "WLHIDEventRouterClient: xpcConnectionToService experienced an interruption");
  log(3, "Error(S): %@", "the reason");
  EXPECT_EQ(heard, (std::vector<std::string>{"the router ended unexpectedly",
                                             "the router did not answer: Error(S): the reason"}));
}

TEST_F(ClientLogWatchTest, HearsOfNothingElse) {
  KQLogger::setLogLevel(4);
  const ClientLogWatch watch(hear);
  log(3, "Error(ST): %@", "the reason");
  log(2, "WLHIDEventRouterClient: xpcConnectionToService experienced an invalidation");
  EXPECT_TRUE(heard.empty());
}

TEST_F(ClientLogWatchTest, LetsErrorsThroughAndPutsTheLevelBack) {
  KQLogger::setLogLevel(4);
  {
    const ClientLogWatch watch(hear);
    EXPECT_EQ(KQLogger::logLevel(), 3U);
  }
  EXPECT_EQ(KQLogger::logLevel(), 4U);
}

TEST_F(ClientLogWatchTest, KeepsALevelThatLetsMoreThrough) {
  KQLogger::setLogLevel(0);
  const ClientLogWatch watch(hear);
  EXPECT_EQ(KQLogger::logLevel(), 0U);
}

TEST_F(ClientLogWatchTest, PrintsOnlyWhatTheUsersLevelAdmits) {
  KQLogger::setLogLevel(4);
  testing::internal::CaptureStderr();
  {
    const ClientLogWatch watch(hear);
    log(3, "an error");
    log(4, "more than an error");
  }
  const std::string printed = testing::internal::GetCapturedStderr();
  EXPECT_EQ(printed.find("an error"),
            printed.find("more than an error") + std::string_view("more than ").size())
      << printed;
}

TEST_F(ClientLogWatchTest, PrintsNothingThatATerminalObeys) {
  KQLogger::setLogLevel(4);
  testing::internal::CaptureStderr();
  {
    const ClientLogWatch watch(hear);
    log(4, "%s", "\x1b[2J\nforged line\u202e");
  }
  const std::string printed = testing::internal::GetCapturedStderr();
  EXPECT_NE(printed.find("\\x1b[2J"), std::string::npos) << printed;
  EXPECT_EQ(printed.find('\x1b'), std::string::npos);
  EXPECT_EQ(printed.find('\n'), printed.size() - 1);
}

TEST_F(ClientLogWatchTest, ALateLineIsShownOnlyAtTheUsersLevel) {
  KQLogger::setLogLevel(4);
  { const ClientLogWatch watch(hear); }
  KQLogger::setLogLevel(3);  // as if the line had been admitted while the watch existed
  testing::internal::CaptureStderr();
  log(3, "late");
  log(4, "the user's");
  const std::string printed = testing::internal::GetCapturedStderr();
  EXPECT_EQ(printed.find("late"), std::string::npos) << printed;
  EXPECT_NE(printed.find("the user's"), std::string::npos) << printed;
}

TEST_F(ClientLogWatchTest, HearsNothingOnceItIsGone) {
  KQLogger::setLogLevel(4);
  { const ClientLogWatch watch(hear); }
  testing::internal::CaptureStderr();
  log(3, "Error(S): %@", "the reason");
  static_cast<void>(testing::internal::GetCapturedStderr());
  EXPECT_TRUE(heard.empty());
}

}  // namespace
}  // namespace tool
