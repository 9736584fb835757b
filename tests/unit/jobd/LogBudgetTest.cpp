// SPDX-License-Identifier: Apache-2.0

#include "jobd/LogBudget.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using jobd::LogBudget;

constexpr std::size_t kPerSecond = 1000 * LogBudget::kBytesPerMillisecond;
constexpr LogBudget::Clock::time_point kStart{};

TEST(LogBudget, MuchAtOnceThenOnlyWhatTimeGives) {
  LogBudget budget(kStart);
  EXPECT_TRUE(budget.take(LogBudget::kCapacity, kStart));
  EXPECT_FALSE(budget.take(1, kStart));
  EXPECT_FALSE(budget.take(kPerSecond, kStart + 999ms));
  EXPECT_TRUE(budget.take(kPerSecond, kStart + 1s));
  EXPECT_FALSE(budget.take(1, kStart + 1s));
}

TEST(LogBudget, WhatIsLeftOutIsCountedAndCostsNothing) {
  LogBudget budget(kStart);
  EXPECT_TRUE(budget.take(LogBudget::kCapacity - 10, kStart));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(budget.take(11, kStart));
  EXPECT_EQ(budget.leftOut(), 3U);
  EXPECT_TRUE(budget.take(10, kStart));
  budget.forgetLeftOut();
  EXPECT_EQ(budget.leftOut(), 0U);
}

TEST(LogBudget, ItNeverHoldsMoreThanItsCapacity) {
  LogBudget budget(kStart);
  EXPECT_TRUE(budget.take(100, kStart));
  EXPECT_FALSE(budget.take(LogBudget::kCapacity + 1, kStart + 24h));
  EXPECT_TRUE(budget.take(LogBudget::kCapacity, kStart + 24h));
}

TEST(LogBudget, SmallStepsOfTimeAddUp) {
  LogBudget budget(kStart);
  EXPECT_TRUE(budget.take(LogBudget::kCapacity, kStart));
  for (int i = 1; i < 10'000; ++i) (void)budget.take(LogBudget::kCapacity, kStart + i * 100us);
  EXPECT_GE(budget.leftOut(), 999U);
  EXPECT_TRUE(budget.take(kPerSecond, kStart + 1s));
}

TEST(LogBudget, FiguresAreThoseThatTheLogsSizeRestsOn) {
  EXPECT_EQ(LogBudget::kCapacity, 262'144U);
  EXPECT_EQ(LogBudget::kBytesPerMillisecond, 8U);
}

TEST(LogBudget, AClockThatWentBackCostsNothing) {
  LogBudget budget(kStart + 1h);
  EXPECT_TRUE(budget.take(LogBudget::kCapacity - 5, kStart + 1h));
  EXPECT_FALSE(budget.take(6, kStart));
  EXPECT_TRUE(budget.take(5, kStart));
}

}  // namespace
