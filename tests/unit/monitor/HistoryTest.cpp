// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/History.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Devices.h"

namespace tool::monitor {
namespace {

using testing::ElementsAre;
constexpr std::nullopt_t kUnknown = std::nullopt;

TEST(History, ShowsTheLastValueOfEachTenthAndKeepsIt) {
  History history(History::Merge::Last);
  history.take(210_ms, 5);
  history.take(290_ms, 7);
  history.take(510_ms, -2);
  EXPECT_THAT(history.until(650_ms, 6), ElementsAre(kUnknown, 7, 7, 7, -2, -2));
  EXPECT_THAT(history.until(950_ms, 2), ElementsAre(-2, -2)) << "also what came before all of them";
}

TEST(History, ShowsAShortPress) {
  History history(History::Merge::Largest);
  history.take(100_ms, 0);
  history.take(310_ms, 1);
  history.take(320_ms, 0);
  EXPECT_THAT(history.until(450_ms, 4), ElementsAre(0, 0, 1, 0));
}

TEST(History, ShowsTheFarthestMovementAndThenNone) {
  History history(History::Merge::Farthest);
  history.take(110_ms, 3);
  history.take(120_ms, -9);
  history.take(130_ms, 4);
  EXPECT_THAT(history.until(350_ms, 4), ElementsAre(kUnknown, -9, 0, 0));
}

TEST(History, ForgetsAfterItsTenths) {
  History history(History::Merge::Last);
  for (int i = 0; i < 300; ++i) history.take(100_ms * i, i);
  const auto values = history.until(29'900_ms, 128);
  ASSERT_EQ(values.size(), 128U);
  EXPECT_EQ(values.front(), 172);
  EXPECT_EQ(values.back(), 299);
}

TEST(History, HasNothingBeforeTheBeginningOfTime) {
  History history(History::Merge::Last);
  history.take(50_ms, 1);
  EXPECT_THAT(history.until(50_ms, 3), ElementsAre(kUnknown, kUnknown, 1));
}

}  // namespace
}  // namespace tool::monitor
