// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Since.h"

#include <gtest/gtest.h>

#include <ctime>

namespace tool::monitor {
namespace {

using namespace std::chrono_literals;

std::string textAfter(std::chrono::milliseconds age) {
  std::tm local{};
  local.tm_year = 126;
  local.tm_mday = 15;
  local.tm_hour = 12;
  local.tm_min = 3;
  local.tm_sec = 4;
  local.tm_isdst = -1;
  const auto since = std::chrono::system_clock::from_time_t(std::mktime(&local));
  return sinceText(since, since + age);
}

TEST(SinceText, IsALocalTimeAndAnAgeInItsLargestWholeUnit) {
  EXPECT_EQ(textAfter(0s), "12:03:04 (0 s)");
  EXPECT_EQ(textAfter(59999ms), "12:03:04 (59 s)");
  EXPECT_EQ(textAfter(60s), "12:03:04 (1 min)");
  EXPECT_EQ(textAfter(3599s), "12:03:04 (59 min)");
  EXPECT_EQ(textAfter(3600s), "12:03:04 (1 h)");
  EXPECT_EQ(textAfter(50h), "12:03:04 (50 h)");
}

TEST(SinceText, SurvivesAClockThatIsSetBack) {
  EXPECT_EQ(textAfter(-10s), "12:03:04 (0 s)");
}

}  // namespace
}  // namespace tool::monitor
