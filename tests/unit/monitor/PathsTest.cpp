// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Paths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Devices.h"

namespace tool::monitor {
namespace {

using testing::ElementsAre;

TEST(Paths, FollowsAPenWithItsPressure) {
  DeviceModel pen(penDescriptor());
  ASSERT_EQ(pen.paths().size(), 1U);
  EXPECT_EQ(pen.paths()[0].name(), "X, Y");
  EXPECT_TRUE(pen.paths()[0].hasPressure());
  pen.take(10_ms, penReport(true, 100, 200, 0));
  pen.take(20_ms, penReport(true, 300, 1000, 255));
  EXPECT_THAT(pen.paths()[0].points(),
              ElementsAre(PathPoint{10_ms, 100, 200, 0}, PathPoint{20_ms, 300, 1000, 1}));
  const Path::Extent extent = pen.paths()[0].extent(20_ms);
  EXPECT_EQ(extent.toX, 1000);
  EXPECT_EQ(extent.toY, 1000);
}

TEST(Paths, AddsUpWhatAMouseMoves) {
  DeviceModel mouse(mouseDescriptor());
  ASSERT_EQ(mouse.paths().size(), 1U);
  EXPECT_FALSE(mouse.paths()[0].hasPressure());
  mouse.take(10_ms, Bytes{0, 10, 0xfe, 0});
  mouse.take(20_ms, Bytes{0, 10, 0xfe, 0});
  EXPECT_THAT(mouse.paths()[0].points(),
              ElementsAre(PathPoint{10_ms, 10, -2, 0}, PathPoint{20_ms, 20, -4, 0}));
}

TEST(Paths, ShowsWhereAMouseHasBeenAndNoTwitch) {
  DeviceModel mouse(mouseDescriptor());
  mouse.take(10_ms, Bytes{0, 1, 0, 0});
  Path::Extent extent = mouse.paths()[0].extent(10_ms);
  EXPECT_EQ(extent.toX - extent.fromX, 100);
  for (int i = 0; i < 10; ++i) mouse.take(20_ms + 10_ms * i, Bytes{0, 100, 0, 0});
  extent = mouse.paths()[0].extent(200_ms);
  EXPECT_EQ(extent.fromX, 1);
  EXPECT_EQ(extent.toX, 1001);
  EXPECT_EQ(extent.toY - extent.fromY, 1000) << "the same scale both ways";
}

TEST(Paths, KeepsFourSecondsAndNotEveryPoint) {
  DeviceModel mouse(mouseDescriptor());
  for (int i = 0; i < 100'000; ++i) mouse.take(Time(125) * i, Bytes{0, 1, 0, 0});
  const auto& points = mouse.paths()[0].points();
  EXPECT_LE(points.size(), 4600U) << "of 32,000";
  EXPECT_GE(points.size(), 3000U);
  EXPECT_GE(points.front().time, Time(125) * 99'999 - Path::kKept);
  EXPECT_EQ(points.back().x, 100'000) << "the latest one is always there";
}

TEST(Paths, HasNoneForKeys) {
  EXPECT_TRUE(DeviceModel(keyboardDescriptor()).paths().empty());
}

}  // namespace
}  // namespace tool::monitor
