// SPDX-License-Identifier: Apache-2.0

#include "jobd/CrashThrottle.h"

#include <gtest/gtest.h>

namespace {

using jobd::CrashThrottle;
using std::chrono::milliseconds;

void useUpTheLeniency(CrashThrottle& throttle) {
  for (int i = 0; i < 25; ++i) EXPECT_EQ(throttle.delayAfterRunOf(milliseconds(0)).count(), 40);
}

TEST(CrashThrottle, DelaysGrowToTheLongestAfterALenientBeginning) {
  CrashThrottle throttle;
  useUpTheLeniency(throttle);
  for (const int expected : {100, 200, 400, 800, 1600, 3200, 6400, 10000, 10000}) {
    EXPECT_EQ(throttle.delayAfterRunOf(milliseconds(0)).count(), expected);
  }
}

TEST(CrashThrottle, AGoodRunMakesAllForgotten) {
  CrashThrottle throttle;
  useUpTheLeniency(throttle);
  EXPECT_EQ(throttle.delayAfterRunOf(milliseconds(999)).count(), 100);
  EXPECT_EQ(throttle.delayAfterRunOf(milliseconds(999)).count(), 200);
  EXPECT_EQ(throttle.delayAfterRunOf(milliseconds(1000)).count(), 0);
  useUpTheLeniency(throttle);
  EXPECT_EQ(throttle.delayAfterRunOf(milliseconds(999)).count(), 100);
}

TEST(CrashThrottle, GoodRunsAreNeverDelayed) {
  CrashThrottle throttle;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(throttle.delayAfterRunOf(milliseconds(60'000)).count(), 0);
}

TEST(CrashThrottle, FiguresAreThoseThatOthersRelyOn) {
  EXPECT_EQ(CrashThrottle::kGoodRun.count(), 1000);
  EXPECT_EQ(CrashThrottle::kLenientStarts, 25U);
  EXPECT_EQ(CrashThrottle::kLenientDelay.count(), 40);
  EXPECT_EQ(CrashThrottle::kShortestDelay.count(), 100);
  EXPECT_EQ(CrashThrottle::kLongestDelay.count(), 10'000);
}

}  // namespace
