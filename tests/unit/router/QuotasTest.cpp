#include "router/Quotas.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
  // It never holds more than at first.
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
  limits.startsOfUser = ofUser;
  limits.starts = all;
  limits.startPatience = milliseconds(0);
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
  // What was refused for the sake of all is not the user's loss.
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
  limits.logLinesOfUser = {2, 1};
  LineQuota quota(limits);
  std::uint64_t leftOut = 99;
  EXPECT_TRUE(quota.admits(1, kStart, &leftOut));
  EXPECT_EQ(leftOut, 0U);
  EXPECT_TRUE(quota.admits(1, kStart, &leftOut));
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(quota.admits(1, kStart, &leftOut));
  EXPECT_TRUE(quota.admits(2, kStart, &leftOut)) << "another user writes on";
  EXPECT_TRUE(quota.admits(1, kStart + seconds(1), &leftOut));
  EXPECT_EQ(leftOut, 5U);
  EXPECT_THAT(quota.takeLeftOut(kStart + seconds(10)), IsEmpty());
}

TEST(LineQuota, WhatWasLeftOutIsToldAlsoWhereNothingFollows) {
  RouterLimits limits;
  limits.logLinesOfUser = {1, 1};
  LineQuota quota(limits);
  std::uint64_t leftOut = 0;
  EXPECT_TRUE(quota.admits(1, kStart, &leftOut));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(quota.admits(1, kStart, &leftOut));
  EXPECT_THAT(quota.takeLeftOut(kStart), IsEmpty()) << "its own line has no place yet";
  const auto told = quota.takeLeftOut(kStart + seconds(1));
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].user, 1U);
  EXPECT_EQ(told[0].lines, 3U);
}

RouterLimits backlogs(std::size_t client, std::size_t user, std::size_t all) {
  RouterLimits limits;
  limits.backlogOfClient = client;
  limits.backlogOfUser = user;
  limits.backlog = all;
  limits.backlogWaitedFor = 25;
  limits.sessionsOfUser = 5;
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
  // Half of the bound is gone; the part of each of five is 10.
  EXPECT_FALSE(b->admits(11));
  EXPECT_FALSE(a->admits(40));
  EXPECT_TRUE(quick->admits(10)) << "it is not the slow one";
  EXPECT_TRUE(other->admits(40)) << "another user's loss it is not";
  // What is taken makes room for those who wait.
  EXPECT_TRUE(b->admits(0));
  EXPECT_TRUE(a->admits(40));
}

/// A client that takes nothing and is sent what it may have, a byte each time.
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
    EXPECT_GT(own, 10U) << "its part is kept for each";
    together += own;
  }
  EXPECT_LE(together, 100U + 5U) << "a report each beyond the bound";
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
    EXPECT_GE(unsent, i == 0 ? 25U : 10U) << "alone it has what serves it best, else its part";
  }
  EXPECT_LE(together, 100U + 5U);
  for (const auto& share : shares) static_cast<void>(share->waitLimit(0));
  EXPECT_EQ(shares[0]->waitLimit(0), 25U) << "there is room again";
}

}  // namespace
