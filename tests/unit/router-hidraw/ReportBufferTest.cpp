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

bool put(ReportBuffer& buffer, const Bytes& report) {
  return buffer.put(ReportBuffer::Time(), report);
}
std::optional<std::span<const std::uint8_t>> bytesOf(
    const std::optional<ReportBuffer::Report>& report) {
  return report ? std::optional(report->bytes) : std::nullopt;
}

TEST(ReportBufferTest, HandsOutWhatWasPutInInItsOrder) {
  ReportBuffer buffer;
  EXPECT_TRUE(buffer.isEmpty());
  EXPECT_TRUE(put(buffer, Bytes{1, 2}));
  EXPECT_TRUE(put(buffer, Bytes{3}));
  EXPECT_FALSE(buffer.isEmpty());
  EXPECT_THAT(bytesOf(buffer.take()), Optional(ElementsAre(1, 2)));
  EXPECT_THAT(bytesOf(buffer.take()), Optional(ElementsAre(3)));
  EXPECT_FALSE(buffer.take());
  EXPECT_FALSE(buffer.isEmpty()) << "the reports stay valid";
  EXPECT_TRUE(put(buffer, Bytes{4}));
  EXPECT_THAT(bytesOf(buffer.take()), Optional(ElementsAre(4)));
}

TEST(ReportBufferTest, KnowsWhenEachCame) {
  const ReportBuffer::Time noon{std::chrono::hours(12)};
  ReportBuffer buffer;
  EXPECT_TRUE(buffer.put(noon, Bytes{1}));
  EXPECT_TRUE(buffer.put(noon + std::chrono::nanoseconds(1), Bytes{2}));
  EXPECT_EQ(buffer.take()->arrival, noon);
  EXPECT_EQ(buffer.take()->arrival, noon + std::chrono::nanoseconds(1));
}

TEST(ReportBufferTest, OnceClearedItBeginsAnew) {
  ReportBuffer buffer;
  EXPECT_TRUE(put(buffer, Bytes{1, 2}));
  EXPECT_TRUE(put(buffer, Bytes{3}));
  EXPECT_THAT(bytesOf(buffer.take()), Optional(ElementsAre(1, 2)));
  buffer.clear();
  EXPECT_TRUE(buffer.isEmpty());
  EXPECT_FALSE(buffer.take());
  EXPECT_TRUE(put(buffer, Bytes{4, 5, 6}));
  EXPECT_THAT(bytesOf(buffer.take()), Optional(ElementsAre(4, 5, 6)));
}

TEST(ReportBufferTest, HoldsOnlySoManyReports) {
  ReportBuffer buffer;
  for (std::size_t i = 0; i < RouterLimits::kReadAheadReports; ++i)
    EXPECT_TRUE(put(buffer, Bytes{1}));
  EXPECT_FALSE(put(buffer, Bytes{2}));
  for (std::size_t i = 0; i < RouterLimits::kReadAheadReports; ++i)
    EXPECT_THAT(bytesOf(buffer.take()), Optional(ElementsAre(1)));
  EXPECT_FALSE(buffer.take());
}

TEST(ReportBufferTest, HoldsOnlySoManyBytes) {
  ReportBuffer buffer;
  EXPECT_TRUE(put(buffer, Bytes(RouterLimits::kReadAheadBytes - 2)));
  EXPECT_FALSE(put(buffer, Bytes(3)));
  EXPECT_TRUE(put(buffer, Bytes{1, 2}));
  EXPECT_FALSE(put(buffer, Bytes{3}));
  EXPECT_EQ(buffer.take()->bytes.size(), RouterLimits::kReadAheadBytes - 2);
  EXPECT_THAT(bytesOf(buffer.take()), Optional(ElementsAre(1, 2)));
  EXPECT_FALSE(buffer.take());
}

}  // namespace
