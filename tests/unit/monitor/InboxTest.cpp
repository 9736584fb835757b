// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Inbox.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <thread>
#include <vector>

namespace tool::monitor {
namespace {

bool isReadable(const Inbox& inbox) {
  pollfd event{inbox.descriptor(), POLLIN, 0};
  return ::poll(&event, 1, 0) == 1;
}

TEST(Inbox, IsReadableWhileThereIsSomethingToTake) {
  Inbox inbox;
  Inbox::News news;
  EXPECT_FALSE(isReadable(inbox));
  inbox.add(Time(1), std::vector<std::byte>(3));
  inbox.add(Time(2), std::vector<std::byte>(1));
  EXPECT_TRUE(isReadable(inbox));
  inbox.takeInto(news);
  EXPECT_FALSE(isReadable(inbox));
  ASSERT_EQ(news.reports.size(), 2U);
  EXPECT_EQ(news.bytesOf(news.reports[0]).size(), 3U);
  EXPECT_EQ(news.reports[1].time, Time(2));
  inbox.add([] {});
  EXPECT_TRUE(isReadable(inbox));
  inbox.takeInto(news);
  EXPECT_EQ(news.reports.size(), 0U);
  EXPECT_EQ(news.events.size(), 1U);
}

TEST(Inbox, DoesNotGrowWithoutABound) {
  Inbox inbox;
  Inbox::News news;
  const std::vector<std::byte> large(std::size_t{1} << 20U);
  for (int i = 0; i < 10; ++i) inbox.add(Time(i), large);
  inbox.takeInto(news);
  EXPECT_EQ(news.reports.size(), 7U);
  EXPECT_EQ(news.leftOut, 3U);
  inbox.takeInto(news);
  EXPECT_EQ(news.leftOut, 0U);
}

TEST(Inbox, KeepsTheOrderOfAThread) {
  constexpr std::int64_t kReports = 20'000;
  Inbox inbox;
  std::thread writer([&] {
    for (std::int64_t i = 0; i < kReports; ++i) inbox.add(Time(i), std::vector<std::byte>(2));
  });
  Inbox::News news;
  for (std::int64_t next = 0; next < kReports;) {
    pollfd event{inbox.descriptor(), POLLIN, 0};
    ASSERT_EQ(::poll(&event, 1, 60'000), 1);
    inbox.takeInto(news);
    for (const Inbox::Report& report : news.reports) EXPECT_EQ(report.time, Time(next++));
  }
  writer.join();
}

}  // namespace
}  // namespace tool::monitor
