// SPDX-License-Identifier: Apache-2.0

// What a buffer of reports holds, and how much.
#include "router/hidraw/ReportBuffer.h"

#include <gmock/gmock.h>

namespace {

using router::ReportBuffer;
using router::RouterLimits;
using testing::ElementsAre;
using testing::Optional;
using Bytes = std::vector<std::uint8_t>;

TEST(ReportBufferTest, HandsOutWhatWasPutInInItsOrder) {
  ReportBuffer buffer;
  EXPECT_TRUE(buffer.isEmpty());
  EXPECT_TRUE(buffer.put(Bytes{1, 2}));
  EXPECT_TRUE(buffer.put(Bytes{3}));
  EXPECT_FALSE(buffer.isEmpty());
  EXPECT_THAT(buffer.take(), Optional(ElementsAre(1, 2)));
  EXPECT_THAT(buffer.take(), Optional(ElementsAre(3)));
  EXPECT_EQ(buffer.take(), std::nullopt);
  EXPECT_FALSE(buffer.isEmpty()) << "the reports stay valid";
  EXPECT_TRUE(buffer.put(Bytes{4}));
  EXPECT_THAT(buffer.take(), Optional(ElementsAre(4)));
}

TEST(ReportBufferTest, OnceClearedItBeginsAnew) {
  ReportBuffer buffer;
  EXPECT_TRUE(buffer.put(Bytes{1, 2}));
  EXPECT_TRUE(buffer.put(Bytes{3}));
  EXPECT_THAT(buffer.take(), Optional(ElementsAre(1, 2)));
  buffer.clear();
  EXPECT_TRUE(buffer.isEmpty());
  EXPECT_EQ(buffer.take(), std::nullopt);
  EXPECT_TRUE(buffer.put(Bytes{4, 5, 6}));
  EXPECT_THAT(buffer.take(), Optional(ElementsAre(4, 5, 6)));
}

TEST(ReportBufferTest, HoldsOnlySoManyReports) {
  ReportBuffer buffer;
  for (std::size_t i = 0; i < RouterLimits::kReadAheadReports; ++i)
    EXPECT_TRUE(buffer.put(Bytes{1}));
  EXPECT_FALSE(buffer.put(Bytes{2}));
  for (std::size_t i = 0; i < RouterLimits::kReadAheadReports; ++i)
    EXPECT_THAT(buffer.take(), Optional(ElementsAre(1)));
  EXPECT_EQ(buffer.take(), std::nullopt);
}

TEST(ReportBufferTest, HoldsOnlySoManyBytes) {
  ReportBuffer buffer;
  EXPECT_TRUE(buffer.put(Bytes(RouterLimits::kReadAheadBytes - 2)));
  EXPECT_FALSE(buffer.put(Bytes(3)));
  EXPECT_TRUE(buffer.put(Bytes{1, 2}));
  EXPECT_FALSE(buffer.put(Bytes{3}));
  EXPECT_EQ(buffer.take()->size(), RouterLimits::kReadAheadBytes - 2);
  EXPECT_THAT(buffer.take(), Optional(ElementsAre(1, 2)));
  EXPECT_EQ(buffer.take(), std::nullopt);
}

}  // namespace
