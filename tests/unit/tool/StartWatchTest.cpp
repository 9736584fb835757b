// SPDX-License-Identifier: Apache-2.0

// Whether a router that does not answer ever will.
#include "tool/routing/StartWatch.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

class StartWatchTest : public testing::Test {
 protected:
  static platform::JobStatus job(std::int64_t starts, std::int64_t pid, std::int64_t heldBack = 0) {
    platform::JobStatus status;
    status.starts = starts;
    status.processIdentifier = pid;
    status.heldBackMilliseconds = heldBack;
    status.lastEnd = "ended by signal 11";
    return status;
  }
  const testsupport::TemporaryDirectory directory;
  StartWatch watch{platform::SystemRoot(directory.path() / "root")};
};

TEST_F(StartWatchTest, GivesUpWhenItHasEndedThreeTimesMeanwhile) {
  EXPECT_FALSE(watch.take(job(7, 0)));
  EXPECT_FALSE(watch.take(job(9, 0)));
  EXPECT_FALSE(watch.take(job(10, 1234))) << "the tenth is still running";
  EXPECT_EQ(watch.take(job(10, 0)), "the router keeps failing at startup: it ended by signal 11");
}

TEST_F(StartWatchTest, GivesUpAtOnceWhereItIsHeldBackForLong) {
  EXPECT_FALSE(watch.take(job(1, 0, 40)));
  EXPECT_FALSE(watch.take(job(1, 0, 999)));
  EXPECT_TRUE(watch.take(job(1, 0, 1000)));
}

TEST_F(StartWatchTest, NamesTheLastEndThatIsKnown) {
  platform::JobStatus forgotten = job(13, 99);
  forgotten.lastEnd.clear();
  EXPECT_FALSE(watch.take(job(10, 0)));
  EXPECT_EQ(watch.take(forgotten), std::nullopt) << "the thirteenth runs";
  forgotten.starts = 14;
  EXPECT_EQ(watch.take(forgotten), "the router keeps failing at startup: it ended by signal 11");
}

TEST_F(StartWatchTest, GivesUpWhereNoneWasEverSeenToEnd) {
  platform::JobStatus forgotten = job(1, 99);
  forgotten.lastEnd.clear();
  EXPECT_FALSE(watch.take(forgotten));
  forgotten.starts = 4;
  EXPECT_EQ(watch.take(forgotten), "the router keeps failing at startup: it ends again and again");
}

TEST_F(StartWatchTest, GivesUpAtOnceWhereNothingStartsIt) {
  platform::ControlReply reply;
  reply.jobs.push_back(job(0, 0));
  EXPECT_FALSE(watch.take(reply));
  reply.message = "the socket has failed";
  EXPECT_EQ(watch.take(reply), "the socket has failed");
}

TEST_F(StartWatchTest, WaitsForARouterThatRuns) {
  for (int i = 0; i < 100; ++i) EXPECT_FALSE(watch.take(job(1, 1234)));
}

}  // namespace
}  // namespace tool
