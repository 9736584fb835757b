// SPDX-License-Identifier: Apache-2.0

#include "router/Quotas.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "router/Backlog.h"

namespace {

using router::Backlog;
using router::LineBudget;
using router::LineQuota;
using router::Rate;
using router::RouterLimits;
using router::TokenBucket;
using router::TurnQuota;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::IsEmpty;

constexpr TokenBucket::Clock::time_point kStart{};

TEST(TokenBucket, LetsSoManyThroughAtOnceAndThenSoManyASecond) {
  TokenBucket bucket(Rate{3, 2});
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(bucket.take(kStart));
  EXPECT_FALSE(bucket.take(kStart));
  EXPECT_FALSE(bucket.take(kStart + milliseconds(499)));
  EXPECT_TRUE(bucket.take(kStart + milliseconds(500)));
  EXPECT_FALSE(bucket.take(kStart + milliseconds(500)));
  // It never holds more than at the beginning.
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(bucket.take(kStart + seconds(1000)));
  EXPECT_FALSE(bucket.take(kStart + seconds(1000)));
  EXPECT_FALSE(bucket.take(kStart)) << "time that goes back gives nothing";
}

TEST(TokenBucket, SaysHowLongATurnIsOff) {
  TokenBucket bucket(Rate{1, 10});
  EXPECT_EQ(bucket.reserve(kStart, seconds(1)), TokenBucket::Clock::duration::zero());
  EXPECT_EQ(bucket.reserve(kStart, seconds(1)), milliseconds(100));
  EXPECT_EQ(bucket.reserve(kStart, seconds(1)), milliseconds(200));
  EXPECT_EQ(bucket.reserve(kStart, milliseconds(250)), std::nullopt);
  EXPECT_EQ(bucket.reserve(kStart, milliseconds(300)), milliseconds(300));
}

RouterLimits turns(Rate ofUser, Rate all) {
  RouterLimits limits;
  limits.startsPerUser = ofUser;
  limits.starts = all;
  limits.startTimeout = milliseconds(0);
  return limits;
}

TEST(TurnQuota, OneUserDoesNotTakeTheTurnsOfAnother) {
  TurnQuota quota(turns({2, 1}, {100, 1}));
  EXPECT_TRUE(quota.reserve(1, kStart));
  EXPECT_TRUE(quota.reserve(1, kStart));
  EXPECT_FALSE(quota.reserve(1, kStart));
  EXPECT_TRUE(quota.reserve(2, kStart));
}

TEST(TurnQuota, AllTogetherHaveABoundToo) {
  TurnQuota quota(turns({2, 1}, {3, 1}));
  EXPECT_TRUE(quota.reserve(1, kStart));
  EXPECT_TRUE(quota.reserve(2, kStart));
  EXPECT_TRUE(quota.reserve(3, kStart));
  EXPECT_FALSE(quota.reserve(4, kStart));
  // A refusal because of the common limit does not count against the user.
  EXPECT_TRUE(quota.reserve(4, kStart + seconds(1)));
  EXPECT_TRUE(quota.reserve(4, kStart + seconds(2)));
}

TEST(LineBudget, CountsWhatItLeavesOut) {
  LineBudget budget(Rate{1, 1});
  EXPECT_TRUE(budget.admits(kStart));
  EXPECT_FALSE(budget.admits(kStart));
  EXPECT_FALSE(budget.admits(kStart));
  EXPECT_EQ(budget.takeLeftOut(), 2U);
  EXPECT_EQ(budget.takeLeftOut(), 0U);
}

TEST(LineQuota, TellsOnceOfWhatWasLeftOut) {
  RouterLimits limits;
  limits.logLinesPerUser = {2, 1};
  LineQuota quota(limits);
  std::uint64_t leftOut = 99;
  EXPECT_TRUE(quota.admits(1, kStart, &leftOut));
  EXPECT_EQ(leftOut, 0U);
  EXPECT_TRUE(quota.admits(1, kStart, &leftOut));
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(quota.admits(1, kStart, &leftOut));
  EXPECT_TRUE(quota.admits(2, kStart, &leftOut)) << "another user can still write";
  EXPECT_TRUE(quota.admits(1, kStart + seconds(1), &leftOut));
  EXPECT_EQ(leftOut, 5U);
  EXPECT_THAT(quota.takeLeftOut(kStart + seconds(10)), IsEmpty());
}

TEST(LineQuota, WhatWasLeftOutIsToldAlsoWhereNothingFollows) {
  RouterLimits limits;
  limits.logLinesPerUser = {1, 1};
  LineQuota quota(limits);
  std::uint64_t leftOut = 0;
  EXPECT_TRUE(quota.admits(1, kStart, &leftOut));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(quota.admits(1, kStart, &leftOut));
  EXPECT_THAT(quota.takeLeftOut(kStart), IsEmpty()) << "there is no room for that line yet";
  const auto told = quota.takeLeftOut(kStart + seconds(1));
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].user, 1U);
  EXPECT_EQ(told[0].lines, 3U);
}

RouterLimits backlogs(std::size_t client, std::size_t user, std::size_t all) {
  RouterLimits limits;
  limits.backlogPerClient = client;
  limits.backlogPerUser = user;
  limits.backlog = all;
  limits.backlogWaitedFor = 25;
  limits.sessionsPerUser = 5;
  limits.sessions = 10;
  return limits;
}

TEST(Backlog, OneClientHasItsOwnBound) {
  const auto backlog = std::make_shared<Backlog>(backlogs(40, 1000, 1000));
  const auto share = backlog->share(1);
  EXPECT_TRUE(share->admits(40));
  EXPECT_FALSE(share->admits(41));
  EXPECT_TRUE(share->admits(0));
}

TEST(Backlog, AUsersClientsTogetherLoseAtTheSlowest) {
  const auto backlog = std::make_shared<Backlog>(backlogs(40, 100, 1000));
  const auto a = backlog->share(1);
  const auto b = backlog->share(1);
  const auto quick = backlog->share(1);
  const auto other = backlog->share(2);
  EXPECT_TRUE(a->admits(40));
  // Half of the limit is used up; the part of each of five clients is 10.
  EXPECT_FALSE(b->admits(11));
  EXPECT_FALSE(a->admits(40));
  EXPECT_TRUE(quick->admits(10)) << "it is not the slow one";
  EXPECT_TRUE(other->admits(40)) << "it is not another user's loss";
  // What is read makes room for those who wait.
  EXPECT_TRUE(b->admits(0));
  EXPECT_TRUE(a->admits(40));
}

/// A client that reads nothing and is sent as much as it may have, one byte at a time.
std::size_t fill(Backlog::Share* share) {
  std::size_t unsent = 0;
  while (share->admits(unsent)) ++unsent;
  return unsent;
}

TEST(Backlog, ClientsThatComeOneAfterAnotherStayWithinTheirUsersBound) {
  const auto backlog = std::make_shared<Backlog>(backlogs(80, 100, 1000));
  std::vector<std::shared_ptr<Backlog::Share>> shares;
  std::size_t together = 0;
  for (int i = 0; i < 5; ++i) {
    shares.push_back(backlog->share(1));
    const std::size_t own = fill(shares.back().get());
    EXPECT_GT(own, 10U) << "its part is reserved for each client";
    together += own;
  }
  EXPECT_LE(together, 100U + 5U) << "one report each beyond the limit";
}

TEST(Backlog, UsersThatComeOneAfterAnotherStayWithinTheBoundOfAll) {
  const auto backlog = std::make_shared<Backlog>(backlogs(80, 100, 100));
  std::vector<std::shared_ptr<Backlog::Share>> shares;
  std::size_t together = 0;
  for (uid_t user = 0; user < 10; ++user) {
    shares.push_back(backlog->share(user));
    together += fill(shares.back().get());
  }
  EXPECT_LE(together, 100U + 10U);
}

TEST(Backlog, AClientThatLeavesTakesItsShareAlong) {
  const auto backlog = std::make_shared<Backlog>(backlogs(40, 50, 1000));
  auto a = backlog->share(1);
  const auto b = backlog->share(1);
  EXPECT_TRUE(a->admits(20));
  EXPECT_FALSE(b->admits(20));
  a.reset();
  EXPECT_TRUE(b->admits(20));
}

TEST(Backlog, ManyThatAreWaitedForStayWithinTheirUsersBound) {
  const auto backlog = std::make_shared<Backlog>(backlogs(40, 100, 1000));
  std::vector<std::shared_ptr<Backlog::Share>> shares;
  std::size_t together = 0;
  for (int i = 0; i < 5; ++i) {
    shares.push_back(backlog->share(1));
    std::size_t unsent = 0;
    while (unsent < shares.back()->waitLimit(unsent)) ++unsent;
    together += unsent;
    EXPECT_GE(unsent, i == 0 ? 25U : 10U) << "alone it has the best size, otherwise its part";
  }
  EXPECT_LE(together, 100U + 5U);
  for (const auto& share : shares) static_cast<void>(share->waitLimit(0));
  EXPECT_EQ(shares[0]->waitLimit(0), 25U) << "there is room again";
}

TEST(TokenBucket, IsFullAsANewOneIs) {
  TokenBucket bucket(Rate{2, 2});
  EXPECT_TRUE(bucket.isFull(kStart));
  EXPECT_TRUE(bucket.take(kStart));
  EXPECT_FALSE(bucket.isFull(kStart));
  EXPECT_FALSE(bucket.isFull(kStart + milliseconds(499)));
  EXPECT_TRUE(bucket.isFull(kStart + milliseconds(500)));
  EXPECT_FALSE(bucket.isFull(kStart)) << "asking changes nothing";
}

TEST(TokenBucket, TimeThatGoesBackIsNotCountedTwice) {
  TokenBucket bucket(Rate{1, 1});
  EXPECT_TRUE(bucket.take(kStart + seconds(10)));
  EXPECT_FALSE(bucket.take(kStart));
  EXPECT_FALSE(bucket.take(kStart + seconds(10)));
  EXPECT_TRUE(bucket.take(kStart + seconds(11)));
}

TEST(TokenBucket, APlaceThatIsGivenBackIsOne) {
  TokenBucket bucket(Rate{1, 1});
  EXPECT_TRUE(bucket.take(kStart));
  bucket.giveBack();
  EXPECT_TRUE(bucket.take(kStart));
  EXPECT_FALSE(bucket.take(kStart));
}

TEST(TokenBucket, APlaceThatIsGivenBackLateIsOneThatCameBackByItself) {
  TokenBucket bucket(Rate{1, 1});
  EXPECT_TRUE(bucket.take(kStart));
  EXPECT_FALSE(bucket.reserve(kStart + seconds(5), seconds(-1)));
  bucket.giveBack();
  EXPECT_TRUE(bucket.take(kStart + seconds(5)));
  EXPECT_FALSE(bucket.take(kStart + seconds(5)));
}

TEST(TurnQuota, WhatIsGivenBackIsThatUsersAndOfAll) {
  TurnQuota quota(turns({1, 1}, {2, 1}));
  EXPECT_TRUE(quota.reserve(1, kStart));
  EXPECT_TRUE(quota.reserve(2, kStart));
  quota.giveBack(1);
  EXPECT_FALSE(quota.reserve(2, kStart));
  EXPECT_TRUE(quota.reserve(1, kStart));
  EXPECT_FALSE(quota.reserve(3, kStart));
}

TEST(TurnQuota, WhatAUserHasTakenIsRememberedWhoeverAsksInBetween) {
  TurnQuota quota(turns({1, 1}, {100, 1}));
  EXPECT_TRUE(quota.reserve(1, kStart));
  EXPECT_TRUE(quota.reserve(2, kStart));
  EXPECT_FALSE(quota.reserve(1, kStart));
  EXPECT_FALSE(quota.reserve(2, kStart));
}

TEST(TurnQuota, WhatIsRefusedForTheSakeOfAllIsGivenBack) {
  TurnQuota quota(turns({1, 0.001}, {1, 1}));
  EXPECT_TRUE(quota.reserve(1, kStart));
  EXPECT_FALSE(quota.reserve(2, kStart));
  EXPECT_TRUE(quota.reserve(2, kStart + seconds(1)));
}

TEST(TurnQuota, TheLongerOfBothWaitsCounts) {
  RouterLimits limits = turns({1, 10}, {2, 1});
  limits.startTimeout = seconds(1);
  TurnQuota quota(limits);
  EXPECT_EQ(quota.reserve(1, kStart)->due(), kStart);
  EXPECT_EQ(quota.reserve(1, kStart)->due(), kStart + milliseconds(100)) << "the user's own limit";
  EXPECT_EQ(quota.reserve(2, kStart)->due(), kStart + seconds(1)) << "the common limit";
  EXPECT_FALSE(quota.reserve(2, kStart)) << "longer than a request may wait";
}

TEST(LineQuota, WhatAUserHasWrittenIsRememberedWhoeverWritesInBetween) {
  RouterLimits limits;
  limits.logLinesPerUser = {1, 1};
  LineQuota quota(limits);
  std::uint64_t leftOut = 0;
  EXPECT_TRUE(quota.admits(1, kStart, &leftOut));
  EXPECT_TRUE(quota.admits(2, kStart, &leftOut));
  EXPECT_FALSE(quota.admits(1, kStart, &leftOut));
  // Its bucket is full again, but its loss has not been reported yet.
  EXPECT_TRUE(quota.admits(2, kStart + seconds(5), &leftOut));
  EXPECT_TRUE(quota.admits(1, kStart + seconds(5), &leftOut));
  EXPECT_EQ(leftOut, 1U);
}

std::size_t memoryInUse() {
  const auto info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// The memory that remains when as many users as a machine may have come once each.
template <class Visit>
std::size_t leftByUsers(const Visit& visit) {
  const std::size_t before = memoryInUse();
  for (uid_t user = 0; user < 20'000; ++user) visit(user, kStart + seconds(user));
  const std::size_t after = memoryInUse();
  return after > before ? after - before : 0;
}

TEST(Quotas, UsersThatDoNotComeAnyMoreTakeNoMemory) {
  constexpr std::size_t kSmall = 100'000;
  TurnQuota quota(turns({2, 10}, {100, 100}));
  EXPECT_LT(leftByUsers([&](uid_t user, auto now) { EXPECT_TRUE(quota.reserve(user, now)); }),
            kSmall);
  RouterLimits limits;
  limits.logLinesPerUser = {2, 10};
  LineQuota lines(limits);
  std::uint64_t leftOut = 0;
  EXPECT_LT(
      leftByUsers([&](uid_t user, auto now) { EXPECT_TRUE(lines.admits(user, now, &leftOut)); }),
      kSmall);
  const auto backlog = std::make_shared<Backlog>(backlogs(40, 1000, 1000));
  EXPECT_LT(leftByUsers([&](uid_t user, auto) { EXPECT_TRUE(backlog->share(user)->admits(1)); }),
            kSmall);
}

TEST(Backlog, HalfOfABoundIsForWhoeverNeedsIt) {
  const auto backlog = std::make_shared<Backlog>(backlogs(40, 100, 1000));
  const auto a = backlog->share(1);
  const auto b = backlog->share(1);
  EXPECT_TRUE(b->admits(10));
  EXPECT_TRUE(a->admits(40)) << "exactly half";
  EXPECT_FALSE(b->admits(11));
  EXPECT_TRUE(b->admits(10)) << "its part of the other half";
  // The same for all users together: half is 100, and each part is 10.
  const auto all = std::make_shared<Backlog>(backlogs(90, 1000, 200));
  const auto one = all->share(1);
  const auto other = all->share(2);
  EXPECT_TRUE(other->admits(10));
  EXPECT_TRUE(one->admits(90)) << "exactly half";
  EXPECT_FALSE(other->admits(11));
  EXPECT_TRUE(other->admits(10));
}

TEST(Backlog, OneOfAUsersClientsThatLeavesTakesNothingElseAlong) {
  const auto backlog = std::make_shared<Backlog>(backlogs(40, 50, 1000));
  auto leaving = backlog->share(1);
  const auto slow = backlog->share(1);
  const auto other = backlog->share(1);
  EXPECT_TRUE(slow->admits(20));
  leaving.reset();
  EXPECT_TRUE(other->admits(5));
  EXPECT_FALSE(other->admits(6)) << "the slow client's backlog counts";
}

}  // namespace
