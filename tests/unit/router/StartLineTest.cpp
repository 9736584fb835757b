// SPDX-License-Identifier: Apache-2.0

// The line of waiting start requests, at times chosen by the test, and its thread.
#include "router/StartLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>

namespace {

using router::RouterLimits;
using router::StartLine;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Turn = StartLine::Turn;

constexpr std::chrono::seconds kPatience{30};
constexpr StartLine::Clock::time_point kStart{};

/// One turn at once and then one per second, for each user; twice that overall.
RouterLimits oneASecond() {
  RouterLimits limits;
  limits.startsPerUser = {1, 1};
  limits.starts = {2, 2};
  limits.startTimeout = seconds(10);
  return limits;
}

class StartLineTest : public testing::Test {
 protected:
  using Names = std::vector<std::string>;

  void makeLine(const RouterLimits& limits) { line_ = std::make_shared<StartLine>(limits); }
  /// The name identifies the request.
  Turn ask(const std::string& name, uid_t user, StartLine::Clock::time_point now = kStart) {
    return line_->askForTurn(user, now, noting(name), &tickets_[name]);
  }
  void giveUp(const std::string& name) { tickets_.erase(name); }
  /// To be called for a request that was woken and has its turn.
  void useTurn(const std::string& name) {
    tickets_.at(name).useTurn();
    giveUp(name);
  }
  Names wokenAt(StartLine::Clock::time_point now) {
    woken_.clear();
    for (const auto& wake : line_->takeDue(now)) wake();
    return woken_;
  }
  StartLine::Wake noting(const std::string& name) {
    return [this, name] { woken_.push_back(name); };
  }

  std::shared_ptr<StartLine> line_ = std::make_shared<StartLine>(oneASecond());
  std::map<std::string, StartLine::Ticket> tickets_;
  Names woken_;
};

TEST_F(StartLineTest, WhoseTurnItIsDoesNotWait) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  EXPECT_EQ(ask("b", 2), Turn::Now);
  EXPECT_THAT(wokenAt(kStart + seconds(100)), IsEmpty());
}

TEST_F(StartLineTest, TurnsComeInTheOrderOfTheRequests) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  for (const char* name : {"b", "c", "d"}) EXPECT_EQ(ask(name, 1), Turn::Later);
  EXPECT_THAT(wokenAt(kStart + milliseconds(999)), IsEmpty());
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("b"));
  EXPECT_THAT(wokenAt(kStart + seconds(1)), IsEmpty()) << "each is woken once";
  EXPECT_THAT(wokenAt(kStart + seconds(9)), ElementsAre("c", "d"));
}

TEST_F(StartLineTest, WhoseTurnIsTooFarOffIsRefusedAndTakesNone) {
  RouterLimits limits = oneASecond();
  limits.startTimeout = seconds(1);
  makeLine(limits);
  EXPECT_EQ(ask("a", 1), Turn::Now);
  EXPECT_EQ(ask("b", 1), Turn::Later);
  EXPECT_EQ(ask("c", 1), Turn::Never);
  giveUp("c");  // no effect
  EXPECT_EQ(ask("d", 1), Turn::Never);
  EXPECT_THAT(wokenAt(kStart + seconds(9)), ElementsAre("b"));
}

TEST_F(StartLineTest, WhoGivesUpWasNeverThereForThoseBehind) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  for (const char* name : {"b", "c", "d"}) EXPECT_EQ(ask(name, 1), Turn::Later);
  giveUp("b");
  EXPECT_EQ(ask("e", 1), Turn::Later);
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("c"));
  EXPECT_THAT(wokenAt(kStart + seconds(2)), ElementsAre("d"));
  EXPECT_THAT(wokenAt(kStart + milliseconds(2999)), IsEmpty());
  EXPECT_THAT(wokenAt(kStart + seconds(3)), ElementsAre("e"));
}

TEST_F(StartLineTest, WhoGivesUpLastLeavesItsTurnToTheNext) {
  RouterLimits limits = oneASecond();
  limits.startTimeout = seconds(1);
  makeLine(limits);
  EXPECT_EQ(ask("a", 1), Turn::Now);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(ask("b", 1), Turn::Later);
    giveUp("b");
  }
  EXPECT_EQ(ask("c", 1), Turn::Later);
  EXPECT_EQ(ask("d", 1), Turn::Never);
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("c"));
}

TEST_F(StartLineTest, OneUsersTurnDoesNotGoToAnother) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  EXPECT_EQ(ask("x", 2), Turn::Now);
  EXPECT_EQ(ask("b", 1), Turn::Later);
  EXPECT_EQ(ask("y", 2), Turn::Later);
  giveUp("b");
  EXPECT_THAT(wokenAt(kStart + milliseconds(999)), IsEmpty());
  EXPECT_EQ(ask("c", 1), Turn::Later);
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("y", "c"));
}

TEST_F(StartLineTest, AmongAllUsersThoseBehindMoveUpToo) {
  RouterLimits limits = oneASecond();
  limits.startsPerUser = {10, 10};
  limits.starts = {1, 1};
  makeLine(limits);
  EXPECT_EQ(ask("a", 1), Turn::Now);
  EXPECT_EQ(ask("b", 1), Turn::Later);
  EXPECT_EQ(ask("x", 2), Turn::Later);
  EXPECT_EQ(ask("c", 1), Turn::Later);
  giveUp("b");
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("x"));
  EXPECT_THAT(wokenAt(kStart + seconds(2)), ElementsAre("c"));
}

TEST_F(StartLineTest, AGivenBackTurnIsNoMoreThanThereWereAtFirst) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  EXPECT_EQ(ask("b", 1), Turn::Later);
  const auto later = kStart + seconds(100);
  EXPECT_EQ(ask("x", 2, later), Turn::Now) << "the first user is forgotten by then";
  giveUp("b");
  EXPECT_EQ(ask("c", 1, later), Turn::Now);
  EXPECT_EQ(ask("d", 1, later), Turn::Later);
}

TEST_F(StartLineTest, ATurnThatIsUsedDoesNotGoBack) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  EXPECT_EQ(ask("b", 1), Turn::Later);
  EXPECT_EQ(ask("c", 1), Turn::Later);
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("b"));
  useTurn("b");
  EXPECT_THAT(wokenAt(kStart + seconds(1)), IsEmpty());
  EXPECT_THAT(wokenAt(kStart + seconds(2)), ElementsAre("c"));
}

TEST_F(StartLineTest, ATurnThatHasComeAndIsNotUsedGoesToTheNext) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  EXPECT_EQ(ask("b", 1), Turn::Later);
  EXPECT_EQ(ask("c", 1), Turn::Later);
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("b"));
  giveUp("b");
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("c"));
}

TEST_F(StartLineTest, WhoWaitsForAnythingElseTakesNoTurn) {
  EXPECT_EQ(ask("a", 1), Turn::Now);
  tickets_["t"] = line_->waitUntil(kStart + seconds(2), noting("t"));
  EXPECT_EQ(ask("b", 1), Turn::Later);
  EXPECT_THAT(wokenAt(kStart + seconds(1)), ElementsAre("b"));
  EXPECT_THAT(wokenAt(kStart + seconds(2)), ElementsAre("t"));
  giveUp("t");
  tickets_["u"] = line_->waitUntil(kStart + seconds(3), noting("u"));
  giveUp("u");
  EXPECT_THAT(wokenAt(kStart + seconds(9)), IsEmpty());
}

TEST_F(StartLineTest, ATicketThatIsReplacedLeaves) {
  StartLine::Ticket ticket = line_->waitUntil(kStart, noting("one"));
  ticket = line_->waitUntil(kStart, noting("two"));
  EXPECT_THAT(wokenAt(kStart), ElementsAre("two"));
}

/// Set by a wake.
struct Call {
  std::promise<void> made;
  StartLine::Wake wake() {
    return [this] { made.set_value(); };
  }
  bool isMade() { return made.get_future().wait_for(kPatience) == std::future_status::ready; }
};

TEST_F(StartLineTest, ItsThreadWakesAlsoWhoseTimeIsTheEarlierOne) {
  Call first;
  Call second;
  line_->begin();
  const auto now = StartLine::Clock::now();
  const auto never = line_->waitUntil(now + std::chrono::hours(1), [] { ADD_FAILURE(); });
  const auto soon = line_->waitUntil(now + milliseconds(1), first.wake());
  EXPECT_TRUE(first.isMade());
  const auto past = line_->waitUntil(now, second.wake());
  EXPECT_TRUE(second.isMade());
  line_->end();
}

TEST_F(StartLineTest, ItsThreadWakesWhomAnothersLeavingMovesUp) {
  RouterLimits limits = oneASecond();
  limits.startsPerUser = {1, 0.001};
  limits.startTimeout = std::chrono::hours(10);
  makeLine(limits);
  line_->begin();
  // So long ago that the first awaited turn has come, but not the second.
  const auto now = StartLine::Clock::now() - seconds(1500);
  EXPECT_EQ(ask("a", 1, now), Turn::Now);
  Call call;
  StartLine::Ticket ahead;
  StartLine::Ticket after;
  EXPECT_EQ(line_->askForTurn(
                1, now, [] {}, &ahead),
            Turn::Later);
  EXPECT_EQ(line_->askForTurn(1, now, call.wake(), &after), Turn::Later);
  ahead = {};
  EXPECT_TRUE(call.isMade());
  line_->end();
}

TEST_F(StartLineTest, AWakeMayUseTheLine) {
  Call call;
  StartLine::Ticket inner;
  line_->begin();
  const auto outer = line_->waitUntil(StartLine::Clock::now(), [&] {
    inner = line_->waitUntil(StartLine::Clock::now(), call.wake());
  });
  EXPECT_TRUE(call.isMade());
  line_->end();
}

TEST_F(StartLineTest, AfterItsEndNobodyIsWoken) {
  line_->begin();
  line_->end();
  const auto ticket = line_->waitUntil(kStart, [] { ADD_FAILURE(); });
  line_->end();
}

}  // namespace
