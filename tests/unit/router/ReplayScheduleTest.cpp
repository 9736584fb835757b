// SPDX-License-Identifier: Apache-2.0

// When the reports of a recording are due, and how speeds are written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "router/Replay.h"
#include "tests/support/WholeRecording.h"

namespace {

using router::ReplaySchedule;
using router::ReplaySpeed;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using testing::ElementsAre;

/// When each report is due, followed by the length of the pass.
std::vector<std::chrono::nanoseconds> schedule(const std::string& times, double speed) {
  std::string text = "R: 2 05 01\n";
  std::istringstream words(times);
  for (std::string time; words >> time;) text += "E: " + time + " 1 00\n";
  router::RecordingReader reader = test::readerOf(text, "a.hid");
  ReplaySchedule schedule(router::readSummary(reader).hasTimes, speed);
  std::vector<std::chrono::nanoseconds> due;
  for (const auto time : test::parseRecording(text, "a.hid").times)
    due.push_back(schedule.due(time));
  due.push_back(schedule.beginAgain());
  EXPECT_EQ(schedule.due(std::chrono::hours(1)).count(), 0) << "the next pass starts from zero";
  return due;
}

TEST(ReplaySchedule, FollowsTheRecordingsClockFromItsFirstReport) {
  EXPECT_THAT(
      schedule("100.5 100.51 102.0", 1),
      ElementsAre(microseconds(0), milliseconds(10), milliseconds(1500), milliseconds(1508)));
}

TEST(ReplaySchedule, IsScaled) {
  EXPECT_EQ(schedule("0.0 1.0", 4)[1], milliseconds(250));
  EXPECT_EQ(schedule("0.0 1.0", 0.5)[1], milliseconds(2000));
}

TEST(ReplaySchedule, WhereTheClockSaysNothingTheUsualIntervalPasses) {
  EXPECT_THAT(schedule("0 0 0", 1),
              ElementsAre(milliseconds(0), milliseconds(8), milliseconds(16), milliseconds(24)));
  const auto restarts = schedule("5.0 5.1 0.0 0.1", 1);
  EXPECT_EQ(restarts[2], milliseconds(108));
  EXPECT_EQ(restarts[3], milliseconds(208));
  // Two reports with the same time stay simultaneous if the recording has times.
  EXPECT_EQ(schedule("5.0 5.0 5.1", 1)[1], microseconds(0));
}

TEST(ReplaySchedule, ImpossibleTimesDoNotOverflow) {
  std::string times;
  for (int i = 0; i < 1000; ++i) times += "0.0 10000000000.0 ";
  const auto s = schedule(times, 0.001);
  EXPECT_GT(s[1999], std::chrono::hours(24 * 365 * 99));
  EXPECT_GE(s[2000], s[1999]);
}

TEST(ReplaySpeed, IsMaxOrANumber) {
  EXPECT_EQ(ReplaySpeed::parse("max"), (ReplaySpeed{1, true}));
  EXPECT_EQ(ReplaySpeed::parse("1"), (ReplaySpeed{1, false}));
  EXPECT_EQ(ReplaySpeed::parse("0.25"), (ReplaySpeed{0.25, false}));
  EXPECT_EQ(ReplaySpeed::parse("1000"), (ReplaySpeed{1000, false}));
  for (const char* wrong :
       {"", "0", "-1", "1001", "0.0001", "fast", "1x", "nan", "inf", "1e2", " 1"}) {
    EXPECT_EQ(ReplaySpeed::parse(wrong), std::nullopt) << wrong;
  }
  for (const double factor : {0.001, 0.1, 1.0, 2.5, 1000.0}) {
    EXPECT_EQ(ReplaySpeed::parse(ReplaySpeed{factor, false}.text()), (ReplaySpeed{factor, false}));
  }
  EXPECT_EQ((ReplaySpeed{1, true}.text()), "max");
}

TEST(ReplaySchedule, NothingIsDueLaterThanACentury) {
  const auto s = schedule("0 10000000000.0 0 10000000000.0", 0.001);
  EXPECT_EQ(s[1], std::chrono::hours(24 * 365 * 100));
  EXPECT_EQ(s[3], s[1]);
}

TEST(ReplaySpeed, TextIsWhatParsesToIt) {
  EXPECT_EQ((ReplaySpeed{0.001, false}.text()), "0.001");
  EXPECT_EQ((ReplaySpeed{2.5, false}.text()), "2.5");
  EXPECT_EQ((ReplaySpeed{1000, false}.text()), "1000");
  EXPECT_EQ(ReplaySpeed::parse("1000.0001"), std::nullopt);
  EXPECT_EQ(ReplaySpeed::parse("0.00099"), std::nullopt);
  EXPECT_EQ(ReplaySpeed::parse("0.001"), (ReplaySpeed{0.001, false}));
}

}  // namespace
