// SPDX-License-Identifier: Apache-2.0

// What a session keeps at most: a promise to the machine, and enough for a person.
#include <gtest/gtest.h>

#include "tool/monitor/Feed.h"
#include "tool/monitor/Inbox.h"
#include "tool/monitor/Layout.h"
#include "tool/monitor/RawReports.h"
#include "tool/monitor/Tracks.h"

namespace tool::monitor {
namespace {

TEST(MonitorLimits, OfMemory) {
  EXPECT_EQ(Inbox::kMostBytes, 8'388'608U);
  EXPECT_EQ(Feed::kMostBytes, 16'777'216U);
  EXPECT_EQ(RawReports::kKept, 128U);
  EXPECT_EQ(RawReports::kBytes, 256U);
  EXPECT_EQ(Tracks::kMost, 1024U);
}

TEST(MonitorLimits, OfTheSmallestTerminal) {
  EXPECT_EQ(kLeastRows, 10);
  EXPECT_EQ(kLeastColumns, 40);
}

}  // namespace
}  // namespace tool::monitor
