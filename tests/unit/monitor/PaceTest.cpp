// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Pace.h"

#include <gtest/gtest.h>

#include "Devices.h"

namespace tool::monitor {
namespace {

TEST(Pace, CountsWhatCameInTheLastWholeSecond) {
  Pace pace;
  for (int i = 0; i < 2000; ++i) pace.take(8_ms * i);  // until 15.992 s
  EXPECT_EQ(pace.count(), 2000U);
  EXPECT_EQ(pace.perSecond(Time(16'000'000)), 125);
  EXPECT_EQ(pace.perSecond(Time(16'550'000)), 62) << "those from 15.5 s on";
  EXPECT_EQ(pace.perSecond(Time(17'100'000)), 0);
}

TEST(Pace, KnowsIntervalsOnlyOnceThereAreAny) {
  Pace pace;
  EXPECT_FALSE(pace.intervals());
  pace.take(1_ms);
  EXPECT_FALSE(pace.intervals());
  pace.take(9_ms);
  ASSERT_TRUE(pace.intervals());
  EXPECT_EQ(pace.intervals()->median, 8_ms);
  EXPECT_EQ(pace.intervals()->longOnes, 8_ms);
  EXPECT_EQ(pace.intervals()->jitter, 0_ms);
}

TEST(Pace, MeasuresUnevenness) {
  Pace pace;
  Time time{};
  for (int i = 0; i < 1000; ++i) {
    pace.take(time);
    time += i % 4 == 0 ? 6_ms : i % 4 == 1 ? 10_ms : 8_ms;
  }
  ASSERT_TRUE(pace.intervals());
  EXPECT_EQ(pace.intervals()->median, 8_ms);
  EXPECT_EQ(pace.intervals()->longOnes, 10_ms);
  EXPECT_NEAR(static_cast<double>(pace.intervals()->jitter.count()), 1000, 5);
}

TEST(Pace, LeavesPausesOut) {
  Pace pace;
  for (int i = 0; i < 100; ++i) pace.take(8_ms * i + (i < 50 ? 0_ms : 5000_ms));
  ASSERT_TRUE(pace.intervals());
  EXPECT_EQ(pace.intervals()->longOnes, 8_ms);
  EXPECT_EQ(pace.intervals()->jitter, 0_ms);
}

TEST(Pace, ForgetsIntervalsOfLongAgo) {
  Pace pace;
  for (int i = 0; i < 100; ++i) pace.take(1_ms * i);
  for (int i = 1; i <= 1024; ++i) pace.take(99_ms + 2_ms * i);
  EXPECT_EQ(pace.intervals()->median, 2_ms);
  EXPECT_EQ(pace.intervals()->jitter, 0_ms);
}

TEST(Pace, IsNotDisturbedByATimeThatGoesBack) {
  Pace pace;
  for (const Time time : {10_ms, 20_ms, 5_ms, 30_ms}) pace.take(time);
  EXPECT_EQ(pace.count(), 4U);
  EXPECT_EQ(pace.intervals()->median, 10_ms);
}

}  // namespace
}  // namespace tool::monitor
