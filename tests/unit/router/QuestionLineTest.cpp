// SPDX-License-Identifier: Apache-2.0

#include "router/policy/QuestionLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using router::QuestionLine;
using Answer = QuestionLine::Answer;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

class QuestionLineTest : public testing::Test {
 protected:
  std::unique_ptr<QuestionLine::Place> enter(const std::string& name, uid_t user = 1000) {
    auto place = line_->enter(user, question(name));
    if (place != nullptr) place->begin();
    return place;
  }
  QuestionLine::Question question(const std::string& name) {
    return {[this, name] { events_.push_back(name + " opens"); },
            [this, name](const std::string& reason) {
              events_.push_back(name + " refused: " + reason);
            }};
  }
  /// Opens a question, which must be possible, and answers it with no.
  void sayNo(const std::string& name) {
    const auto place = enter(name);
    ASSERT_NE(place, nullptr);
    place->answered(Answer::No);
  }
  std::vector<std::string> takeEvents() { return std::exchange(events_, {}); }

  QuestionLine::Clock::time_point now_{seconds(100'000)};
  router::QuestionLimits limits_{seconds(10), seconds(60), 3};
  std::shared_ptr<QuestionLine> line_ =
      std::make_shared<QuestionLine>(limits_, [this] { return now_; });
  std::vector<std::string> events_;
};

TEST_F(QuestionLineTest, OneIsOpenAtATime) {
  auto first = enter("first");
  auto second = enter("second");
  auto third = enter("third");
  EXPECT_THAT(takeEvents(), ElementsAre("first opens"));
  first->answered(Answer::Yes);
  EXPECT_THAT(takeEvents(), ElementsAre());
  first.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("second opens"));
  second.reset();  // withdrawn
  EXPECT_THAT(takeEvents(), ElementsAre("third opens"));
}

TEST_F(QuestionLineTest, OneThatWaitsCanLeave) {
  auto first = enter("first");
  auto second = enter("second");
  auto third = enter("third");
  second.reset();
  first.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("first opens", "third opens"));
}

TEST_F(QuestionLineTest, UsersDoNotWaitForEachOther) {
  const auto first = enter("first", 1000);
  const auto second = enter("second", 1001);
  EXPECT_THAT(takeEvents(), ElementsAre("first opens", "second opens"));
}

TEST_F(QuestionLineTest, OneThatHasNotBegunDoesNotOpen) {
  const auto first = line_->enter(1000, question("first"));
  auto second = enter("second");
  EXPECT_THAT(takeEvents(), ElementsAre());
  first->begin();
  first->begin();
  EXPECT_THAT(takeEvents(), ElementsAre("first opens"));
}

TEST_F(QuestionLineTest, TheNextOpensWhenItBegins) {
  auto first = enter("first");
  const auto second = line_->enter(1000, question("second"));
  first.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("first opens"));
  second->begin();
  EXPECT_THAT(takeEvents(), ElementsAre("second opens"));
}

TEST_F(QuestionLineTest, ANoRefusesThoseThatWait) {
  auto first = enter("first");
  auto second = enter("second");
  auto third = enter("third");
  takeEvents();
  first->answered(Answer::No);
  EXPECT_THAT(takeEvents(),
              ElementsAre(HasSubstr("second refused: "), HasSubstr("third refused: ")));
  first.reset();
  second.reset();
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(QuestionLineTest, ThePauseAfterANoDoublesUpToItsLimit) {
  for (const int pause : {10, 20, 40, 60, 60}) {
    sayNo("asked");
    EXPECT_THAT(takeEvents(), ElementsAre("asked opens"));
    now_ += seconds(pause) - std::chrono::milliseconds(1);
    EXPECT_EQ(enter("early"), nullptr);
    EXPECT_THAT(takeEvents(), ElementsAre(HasSubstr("can be asked in 1 s")));
    now_ += std::chrono::milliseconds(1);
  }
}

TEST_F(QuestionLineTest, AWithdrawnQuestionIsFollowedByAPauseButNotForThoseThatWait) {
  auto first = enter("first");
  auto second = enter("second");
  first.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("first opens", "second opens"));
  EXPECT_EQ(enter("third"), nullptr);
  EXPECT_THAT(takeEvents(), ElementsAre(HasSubstr("can be asked in 10 s")));
  second.reset();
  EXPECT_EQ(enter("third"), nullptr);
  EXPECT_THAT(takeEvents(), ElementsAre(HasSubstr("can be asked in 20 s")));
}

TEST_F(QuestionLineTest, NobodyHasToWaitForAQuestionThatNobodySaw) {
  const auto waiting = enter("seen");
  auto second = enter("never open");
  second.reset();
  waiting->answered(Answer::NobodyToAsk);
  auto third = enter("third");
  EXPECT_THAT(takeEvents(), ElementsAre("seen opens"));
  third.reset();
  EXPECT_NE(enter("fourth"), nullptr);
}

TEST_F(QuestionLineTest, AYesEndsTheDoubling) {
  sayNo("asked");
  now_ += seconds(10);
  enter("asked")->answered(Answer::Yes);
  sayNo("asked");
  now_ += seconds(10);
  takeEvents();
  const auto place = enter("again");
  EXPECT_THAT(takeEvents(), ElementsAre("again opens"));
}

TEST_F(QuestionLineTest, AnotherUserIsNotPaused) {
  sayNo("asked");
  takeEvents();
  const auto place = enter("other", 1001);
  EXPECT_THAT(takeEvents(), ElementsAre("other opens"));
}

TEST_F(QuestionLineTest, ANoIsForgottenInTheEnd) {
  sayNo("asked");
  now_ += seconds(10);
  sayNo("asked");
  now_ += seconds(20 + 60);
  sayNo("asked");
  now_ += seconds(10);
  takeEvents();
  const auto place = enter("again");
  EXPECT_THAT(takeEvents(), ElementsAre("again opens"));
}

TEST_F(QuestionLineTest, RemembersANoAndNothingElse) {
  EXPECT_FALSE(line_->remembersAnybody());
  auto place = enter("asked");
  EXPECT_TRUE(line_->remembersAnybody()) << "the question is open";
  place->answered(Answer::Yes);
  place.reset();
  EXPECT_FALSE(line_->remembersAnybody());
  enter("asked")->answered(Answer::NobodyToAsk);
  EXPECT_FALSE(line_->remembersAnybody());
  sayNo("asked");
  now_ += seconds(10 + 59);
  EXPECT_TRUE(line_->remembersAnybody()) << "the next pause would be longer";
  now_ += seconds(1);
  EXPECT_FALSE(line_->remembersAnybody());
}

TEST_F(QuestionLineTest, TooManyAreRefused) {
  const auto first = enter("first");
  const auto second = enter("second");
  const auto third = enter("third");
  takeEvents();
  EXPECT_EQ(enter("fourth"), nullptr);
  EXPECT_THAT(takeEvents(), ElementsAre(HasSubstr("fourth refused: too many")));
}

TEST_F(QuestionLineTest, ALateAnswerCountsForNothing) {
  auto first = enter("first");
  auto second = enter("second");
  second->answered(Answer::No);  // it is not open
  first->answered(Answer::No);
  first->answered(Answer::No);  // it has been answered
  now_ += seconds(10);
  takeEvents();
  const auto place = enter("again");
  EXPECT_THAT(takeEvents(), ElementsAre("again opens"));
}

TEST_F(QuestionLineTest, AQuestionMayBeDroppedWhileItOpens) {
  std::unique_ptr<QuestionLine::Place> second;
  auto first = enter("first");
  second = line_->enter(1000, {[&] { second.reset(); }, [](const std::string&) {}});
  second->begin();
  auto third = enter("third");
  first.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("first opens", "third opens"));
}

}  // namespace
