// SPDX-License-Identifier: Apache-2.0

#include "jobd/QuestionThrottle.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using jobd::QuestionThrottle;

constexpr uid_t kUser = 1000;

class Throttle : public testing::Test {
 protected:
  using Answer = QuestionThrottle::Answer;

  [[nodiscard]] bool mayAsk(uid_t user = kUser) { return throttle_.begin(user, now_).empty(); }
  void answer(QuestionThrottle::Answer answer) { throttle_.end(kUser, answer, now_); }

  QuestionThrottle throttle_;
  QuestionThrottle::Clock::time_point now_{1h};
};

TEST_F(Throttle, AllowsAUserOneQuestionAtATime) {
  EXPECT_TRUE(mayAsk());
  EXPECT_FALSE(mayAsk());
  EXPECT_TRUE(mayAsk(kUser + 1)) << "another user";
  answer(Answer::Yes);
  EXPECT_TRUE(mayAsk());
}

TEST_F(Throttle, PausesAfterANoLongerEachTime) {
  for (const auto pause : {2s, 4s, 8s, 16s, 32s, 60s, 60s}) {
    ASSERT_TRUE(mayAsk());
    answer(Answer::No);
    now_ += pause - 1ms;
    EXPECT_FALSE(mayAsk());
    now_ += 1ms;
  }
  EXPECT_TRUE(mayAsk());
  answer(Answer::Yes);
  EXPECT_TRUE(mayAsk()) << "a yes ends it";
}

TEST_F(Throttle, NobodyHasSeenAQuestionIfThereWasNobodyToAsk) {
  ASSERT_TRUE(mayAsk());
  answer(Answer::NobodyToAsk);
  ASSERT_TRUE(mayAsk());
  answer(Answer::No);
  EXPECT_FALSE(mayAsk());
  now_ += 2s;
  ASSERT_TRUE(mayAsk());
  answer(Answer::NobodyToAsk);
  ASSERT_TRUE(mayAsk());
  answer(Answer::No);
  now_ += 4s - 1ms;
  EXPECT_FALSE(mayAsk()) << "it is no yes either";
}

TEST_F(Throttle, ForgetsWhatIsLongAgo) {
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(mayAsk());
    answer(Answer::No);
    now_ += 1min;
  }
  now_ += 10min;
  ASSERT_TRUE(mayAsk());
  answer(Answer::No);
  now_ += 2s;
  EXPECT_TRUE(mayAsk()) << "the first pause again";
}

TEST_F(Throttle, RemembersANoAndNothingElse) {
  EXPECT_FALSE(throttle_.remembersAnybody(now_));
  ASSERT_TRUE(mayAsk());
  EXPECT_TRUE(throttle_.remembersAnybody(now_)) << "the question is open";
  answer(Answer::NobodyToAsk);
  EXPECT_FALSE(throttle_.remembersAnybody(now_));
  ASSERT_TRUE(mayAsk());
  answer(Answer::No);
  now_ += 10min;
  EXPECT_TRUE(throttle_.remembersAnybody(now_)) << "the next pause would be longer";
  now_ += 3s;
  EXPECT_FALSE(throttle_.remembersAnybody(now_));
}

TEST_F(Throttle, AnOpenQuestionIsNotForgotten) {
  ASSERT_TRUE(mayAsk());
  now_ += 1h;
  EXPECT_FALSE(mayAsk());
}

TEST_F(Throttle, TheSuperuserIsNeverHeldBack) {
  EXPECT_TRUE(mayAsk(0));
  EXPECT_TRUE(mayAsk(0));
}

}  // namespace
