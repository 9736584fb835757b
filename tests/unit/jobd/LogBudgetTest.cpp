#include "jobd/LogBudget.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using jobd::LogBudget;

constexpr std::size_t perSecond = 1000 * LogBudget::bytesPerMillisecond;
constexpr LogBudget::Clock::time_point start{};

TEST(LogBudget, MuchAtOnceThenOnlyWhatTimeGives) {
  LogBudget budget(start);
  EXPECT_TRUE(budget.take(LogBudget::capacity, start));
  EXPECT_FALSE(budget.take(1, start));
  EXPECT_FALSE(budget.take(perSecond, start + 999ms));
  EXPECT_TRUE(budget.take(perSecond, start + 1s));
  EXPECT_FALSE(budget.take(1, start + 1s));
}

TEST(LogBudget, WhatIsLeftOutIsCountedAndCostsNothing) {
  LogBudget budget(start);
  EXPECT_TRUE(budget.take(LogBudget::capacity - 10, start));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(budget.take(11, start));
  EXPECT_EQ(budget.leftOut(), 3U);
  EXPECT_TRUE(budget.take(10, start));
  budget.forgetLeftOut();
  EXPECT_EQ(budget.leftOut(), 0U);
}

TEST(LogBudget, ItNeverHoldsMoreThanItsCapacity) {
  LogBudget budget(start);
  EXPECT_TRUE(budget.take(100, start));
  EXPECT_FALSE(budget.take(LogBudget::capacity + 1, start + 24h));
  EXPECT_TRUE(budget.take(LogBudget::capacity, start + 24h));
}

TEST(LogBudget, SmallStepsOfTimeAddUp) {
  LogBudget budget(start);
  EXPECT_TRUE(budget.take(LogBudget::capacity, start));
  for (int i = 1; i < 10'000; ++i) (void)budget.take(LogBudget::capacity, start + i * 100us);
  EXPECT_GE(budget.leftOut(), 999U);
  EXPECT_TRUE(budget.take(perSecond, start + 1s));
}

TEST(LogBudget, FiguresAreThoseThatTheLogsSizeRestsOn) {
  EXPECT_EQ(LogBudget::capacity, 262'144U);
  EXPECT_EQ(LogBudget::bytesPerMillisecond, 8U);
}

TEST(LogBudget, AClockThatWentBackCostsNothing) {
  LogBudget budget(start + 1h);
  EXPECT_TRUE(budget.take(LogBudget::capacity - 5, start + 1h));
  EXPECT_FALSE(budget.take(6, start));
  EXPECT_TRUE(budget.take(5, start));
}

}  // namespace
