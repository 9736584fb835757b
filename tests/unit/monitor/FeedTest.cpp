// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Feed.h"

#include <gtest/gtest.h>

#include "Devices.h"

namespace tool::monitor {
namespace {

class FeedTest : public testing::Test {
 protected:
  void take(Time time, std::uint8_t button) { feed_.take(time, Bytes{button, 0, 0, 0}); }

  DeviceModel model_{mouseDescriptor()};
  Feed feed_{model_};
};

TEST_F(FeedTest, ShowsWhatComesAtOnce) {
  take(1_ms, 1);
  EXPECT_EQ(model_.pace().count(), 1U);
  EXPECT_EQ(feed_.shownAt(70_ms), 70_ms);
}

TEST_F(FeedTest, APauseHoldsReportsBackUntilItIsOver) {
  take(1_ms, 1);
  feed_.pause(5_ms);
  take(10_ms, 2);
  take(20_ms, 4);
  EXPECT_EQ(model_.pace().count(), 1U);
  EXPECT_EQ(feed_.waiting(), 2U);
  EXPECT_EQ(feed_.shownAt(70_ms), 5_ms);
  feed_.resume();
  EXPECT_EQ(model_.pace().count(), 3U);
  EXPECT_EQ(model_.reports().latest().back().time, 20_ms) << "the time at which it came";
  EXPECT_EQ(feed_.waiting(), 0U);
  EXPECT_FALSE(feed_.isPaused());
}

TEST_F(FeedTest, AStepShowsOneReport) {
  feed_.pause(5_ms);
  take(10_ms, 2);
  take(20_ms, 4);
  feed_.step();
  EXPECT_EQ(model_.reports().latest().size(), 1U);
  EXPECT_EQ(model_.reports().latest().back().bytes[0], 2);
  EXPECT_EQ(feed_.shownAt(70_ms), 10_ms) << "and the time moves on to it";
  EXPECT_EQ(feed_.waiting(), 1U);
  feed_.step();
  feed_.step();
  EXPECT_EQ(model_.pace().count(), 2U) << "there were no more";
  take(30_ms, 1);
  EXPECT_EQ(feed_.waiting(), 1U) << "it is still paused";
}

TEST_F(FeedTest, ALongPauseLeavesOutWhatThereIsNoRoomFor) {
  feed_.pause(0_ms);
  const Bytes large(std::size_t{1} << 20U, 0);
  for (int i = 0; i < 20; ++i) feed_.take(1_ms * i, large);
  EXPECT_EQ(feed_.waiting(), 15U);
  EXPECT_EQ(feed_.leftOut(), 5U);
  feed_.resume();
  EXPECT_EQ(model_.pace().count(), 15U);
}

}  // namespace
}  // namespace tool::monitor
