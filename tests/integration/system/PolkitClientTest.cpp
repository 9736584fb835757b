// SPDX-License-Identifier: Apache-2.0

#include "platform/system/PolkitClient.h"

#include <gmock/gmock.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/system/BusCalls.h"
#include "tests/support/Inbox.h"
#include "tests/support/MockPolkit.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/PrivateBus.h"

namespace {

using namespace std::chrono_literals;
using platform::system::BusCalls;
using platform::system::BusMessage;
using platform::system::BusReply;
using platform::system::PeerProcess;
using platform::system::PolkitAnswer;
using platform::system::PolkitClient;
using platform::system::PolkitQuestion;
using platform::system::SystemBus;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;
using testsupport::Inbox;
using testsupport::MockPolkit;
using testsupport::OtherProcess;
using testsupport::PrivateBus;
using Kind = PolkitAnswer::Kind;
using Says = MockPolkit::Says;

class Polkit : public testing::Test {
 protected:
  Polkit() { connect(); }

  void connect() { client_ = std::make_unique<PolkitClient>(bus_); }

  PolkitQuestion question() {
    std::string whyNot;
    auto process = PeerProcess::ofSocket(caller_.socket(), whyNot);
    if (!process) throw std::runtime_error(whyNot);
    return {.process = *process, .action = "com.example.read"};
  }
  PolkitQuestion toPerson() {
    PolkitQuestion made = question();
    made.mayAskPerson = true;
    return made;
  }
  PolkitClient::QuestionID ask(PolkitQuestion question) {
    return client_->ask(std::move(question), [this](const PolkitAnswer& answer) {
      EXPECT_TRUE(bus_.isOnItsThread());
      answers_.put(answer);
    });
  }
  /// What is answered to this question, with which all earlier ones must have been answered.
  PolkitAnswer answered(Says says) {
    ask(question());
    polkit_->answer(polkit_->next(), says);
    PolkitAnswer answer = answers_.next();
    EXPECT_EQ(answers_.size(), 0U);
    return answer;
  }
  /// Everything that was answered before now has been reported.
  void expectNoMoreAnswers() {
    EXPECT_TRUE(answered(Says::Yes).isYes());
    EXPECT_EQ(answers_.size(), 0U);
  }

  Inbox<PolkitAnswer> answers_;  // outlives whoever reports to it
  Inbox<std::pair<std::size_t, bool>> numbered_;
  PrivateBus daemon_;
  OtherProcess caller_;
  SystemBus bus_{{.address = daemon_.address(), .firstBreak = 1ms, .longestBreak = 10ms}};
  std::unique_ptr<MockPolkit> polkit_ = std::make_unique<MockPolkit>(daemon_.address());
  std::unique_ptr<PolkitClient> client_;
};

// ---- What is asked

TEST_F(Polkit, IsToldWhoAsksInItsOwnTypes) {
  const PolkitQuestion asked = question();
  ask(asked);
  const auto got = polkit_->next();
  EXPECT_EQ(got.processID, static_cast<std::uint32_t>(caller_.processID()));
  EXPECT_EQ(got.startTime, asked.process.startTime());
  EXPECT_EQ(got.user, static_cast<std::int32_t>(::geteuid()));
  EXPECT_EQ(got.action, "com.example.read");
  EXPECT_THAT(got.details, IsEmpty());
  EXPECT_EQ(got.flags, 0U);
  EXPECT_NE(got.cancellation, "");
  EXPECT_THAT(polkit_->complaints(), IsEmpty());
}

TEST_F(Polkit, IsToldDetailsAndTheMessage) {
  PolkitQuestion asked = toPerson();
  asked.details = {{"vendor", "0x1234"}, {"name", "Foot\nSwitch $(x)"}};
  asked.message = "Allow $(name) to\nread?";
  ask(asked);
  const auto got = polkit_->next();
  EXPECT_THAT(got.details, ElementsAre(Pair("name", "Foot\\x0aSwitch $(x)"),
                                       Pair("polkit.message", "Allow $ (name) to\\x0aread?"),
                                       Pair("vendor", "0x1234")));
  EXPECT_EQ(got.flags, 1U);
}

TEST_F(Polkit, IsToldABoundedMessage) {
  PolkitQuestion asked = question();
  asked.details = {{"name", std::string(100000, 'x')}};
  asked.message = std::string(100000, 'y');
  ask(asked);
  const auto got = polkit_->next();
  EXPECT_LE(got.details.at("name").size(), 210U);
  EXPECT_LE(got.details.at("polkit.message").size(), 610U);
}

TEST_F(Polkit, IsNotAskedWhatItWouldMisunderstand) {
  PolkitQuestion reserved = question();
  reserved.details = {{"polkit.dismissed", "true"}};
  ask(reserved);
  EXPECT_EQ(answers_.next().kind, Kind::Failed);
  PolkitQuestion tooMany = question();
  for (char c = 'a'; c <= 'q'; ++c) tooMany.details[std::string(1, c)] = "";
  ask(tooMany);
  EXPECT_EQ(answers_.next().kind, Kind::Failed);
  PolkitQuestion nothing = question();
  nothing.action.clear();
  ask(nothing);
  EXPECT_EQ(answers_.next().kind, Kind::Failed);
  EXPECT_EQ(polkit_->asked(), 0U);
}

/// The mock must be able to fail a client that the real polkit would misunderstand in silence.
TEST_F(Polkit, TheMockRefusesAUserOfTheWrongType) {
  Inbox<std::string> errors;
  std::unique_ptr<BusCalls> calls;
  bus_.run([&] {
    calls = std::make_unique<BusCalls>(bus_, 1);
    calls->call(
        [](sd_bus* connection) {
          sd_bus_message* made = nullptr;
          sd_bus_message_new_method_call(connection, &made, "org.freedesktop.PolicyKit1",
                                         "/org/freedesktop/PolicyKit1/Authority",
                                         "org.freedesktop.PolicyKit1.Authority",
                                         "CheckAuthorization");
          sd_bus_message_append(made, "(sa{sv})sa{ss}us", "unix-process", 3, "pid", "u", 1U,
                                "start-time", "t", std::uint64_t{1}, "uid", "u", 1000U, "a.b", 0,
                                0U, "");
          return BusMessage(made);
        },
        60s, [&](const BusReply& reply) { errors.put(reply.error); });
  });
  EXPECT_EQ(errors.next(), "org.freedesktop.PolicyKit1.Error.Failed: the user is no i");
  EXPECT_THAT(polkit_->complaints(), ElementsAre("the user is no i"));
  bus_.run([&] { calls.reset(); });
}

// ---- What is answered

TEST_F(Polkit, OnlyYesIsYes) {
  const PolkitAnswer yes = answered(Says::Yes);
  EXPECT_TRUE(yes.isYes());
  const PolkitAnswer no = answered(Says::No);
  EXPECT_EQ(no.kind, Kind::No);
  EXPECT_FALSE(no.needsPerson);
  EXPECT_EQ(no.reason, "polkit does not allow it");
  const PolkitAnswer person = answered(Says::NeedsPerson);
  EXPECT_EQ(person.kind, Kind::No);
  EXPECT_TRUE(person.needsPerson);
  const PolkitAnswer dismissed = answered(Says::Dismissed);
  EXPECT_EQ(dismissed.kind, Kind::Dismissed);
  for (const PolkitAnswer& each : {no, person, dismissed}) EXPECT_FALSE(each.isYes());
}

TEST_F(Polkit, AMissingAgentIsNamed) {
  ask(toPerson());
  polkit_->answer(polkit_->next(), Says::NeedsPerson);
  EXPECT_EQ(answers_.next().reason,
            "a person must allow it, and the program's login session has no authentication agent "
            "to ask one with");
}

TEST_F(Polkit, AnErrorIsNoDecision) {
  const PolkitAnswer answer = answered(Says::Error);
  EXPECT_EQ(answer.kind, Kind::Failed);
  EXPECT_EQ(answer.reason,
            "polkit has not answered: org.freedesktop.PolicyKit1.Error.Failed: no\\x0asuch action");
}

TEST_F(Polkit, AMalformedAnswerIsNoDecision) {
  for (const Says says :
       {Says::Nothing, Says::WrongTypes, Says::YesAndNeedsPerson, Says::BareFlags}) {
    const PolkitAnswer answer = answered(says);
    EXPECT_EQ(answer.kind, Kind::Failed);
    EXPECT_EQ(answer.reason, "polkit's answer is malformed");
  }
}

/// A thousand at once, answered in any order: more than the bus lets a connection wait for.
TEST_F(Polkit, TheAnswersFindTheirQuestions) {
  constexpr std::size_t kCount = 1000;
  constexpr std::size_t kHeld = 40;
  for (std::size_t i = 0; i < kCount; ++i) {
    PolkitQuestion asked = question();
    asked.mayAskPerson = i % 2 == 0;
    asked.details = {{"number", std::to_string(i)}};
    asked.limit = 10min;
    client_->ask(asked, [this, i](const PolkitAnswer& answer) {
      numbered_.put({i, answer.isYes()});
    });
  }
  std::mt19937 random(1);
  std::vector<MockPolkit::Asked> held;
  for (std::size_t received = 0; received < kCount || !held.empty();) {
    for (; received < kCount && held.size() < kHeld; ++received) held.push_back(polkit_->next());
    std::swap(held[random() % held.size()], held.back());
    const bool isYes = std::stoul(held.back().details.at("number")) % 3 == 0;
    polkit_->answer(held.back(), isYes ? Says::Yes : Says::No);
    held.pop_back();
  }
  std::vector<int> answers(kCount, 0);
  for (std::size_t i = 0; i < kCount; ++i) {
    const auto [number, isYes] = numbered_.next();
    EXPECT_EQ(isYes, number % 3 == 0) << number;
    ++answers[number];
  }
  EXPECT_EQ(answers, std::vector<int>(kCount, 1));
  EXPECT_THAT(polkit_->complaints(), IsEmpty());
}

TEST_F(Polkit, PersonsWhoTakeTheirTimeDoNotKeepTheRulesFromBeingAsked) {
  for (int i = 0; i < 100; ++i) ask(toPerson());
  for (int i = 0; i < 48; ++i) EXPECT_EQ(polkit_->next().flags, 1U);
  ask(question());
  const auto rule = polkit_->next();
  EXPECT_EQ(rule.flags, 0U);
  polkit_->answer(rule, Says::Yes);
  EXPECT_TRUE(answers_.next().isYes());
}

// ---- The end of this and that

TEST_F(Polkit, ACallerThatHasGoneIsANo) {
  ask(toPerson());
  const auto asked = polkit_->next();
  caller_.end();
  polkit_->answer(asked, Says::Yes);
  const PolkitAnswer answer = answers_.next();
  EXPECT_EQ(answer.kind, Kind::No);
  EXPECT_EQ(answer.reason, "the program has ended");
}

TEST_F(Polkit, IsNotAskedAboutACallerThatHasGone) {
  const PolkitQuestion asked = question();
  caller_.end();
  ask(asked);
  EXPECT_EQ(answers_.next().kind, Kind::No);
  EXPECT_EQ(polkit_->asked(), 0U);
}

TEST_F(Polkit, AWithdrawnQuestionIsTakenBackAndAnsweredOnce) {
  const auto id = ask(toPerson());
  const auto asked = polkit_->next();
  client_->withdraw(id);
  client_->withdraw(id);
  EXPECT_EQ(answers_.next().kind, Kind::Withdrawn);
  EXPECT_EQ(polkit_->nextCanceled(), asked.cancellation);
  expectNoMoreAnswers();
  EXPECT_THAT(polkit_->complaints(), IsEmpty());
}

TEST_F(Polkit, AQuestionThatWaitsIsWithdrawnUnasked) {
  for (int i = 0; i < 48; ++i) ask(toPerson());
  client_->withdraw(ask(toPerson()));
  EXPECT_EQ(answers_.next().kind, Kind::Withdrawn);
  for (int i = 0; i < 48; ++i) polkit_->answer(polkit_->next(), Says::No);
  for (int i = 0; i < 48; ++i) EXPECT_EQ(answers_.next().kind, Kind::No);
  expectNoMoreAnswers();
  EXPECT_EQ(polkit_->asked(), 49U);
}

TEST_F(Polkit, AnswerAndWithdrawalMayCoincide) {
  for (int i = 0; i < 200; ++i) {
    const auto id = ask(toPerson());
    const auto asked = polkit_->next();
    std::thread withdrawing([&] { client_->withdraw(id); });
    polkit_->answer(asked, Says::Yes);
    withdrawing.join();
    const PolkitAnswer answer = answers_.next();
    EXPECT_TRUE(answer.kind == Kind::Yes || answer.kind == Kind::Withdrawn);
  }
  expectNoMoreAnswers();
}

TEST_F(Polkit, AQuestionMayBeWithdrawnFromWithinAnotherOnesAnswer) {
  const auto second = ask(toPerson());
  client_->ask(question(), [&](const PolkitAnswer& answer) {
    answers_.put(answer);
    client_->withdraw(second);
  });
  polkit_->next();
  polkit_->answer(polkit_->next(), Says::Yes);
  EXPECT_TRUE(answers_.next().isYes());
  EXPECT_EQ(answers_.next().kind, Kind::Withdrawn);
}

TEST_F(Polkit, ALateAnswerIsNoDecisionAndTheQuestionIsTakenBack) {
  PolkitQuestion asked = toPerson();
  asked.limit = 10ms;
  ask(asked);
  const PolkitAnswer answer = answers_.next();
  EXPECT_EQ(answer.kind, Kind::Failed);
  EXPECT_EQ(answer.reason, "polkit has not answered: there was no answer in time");
  EXPECT_EQ(polkit_->nextCanceled(), polkit_->next().cancellation);
  expectNoMoreAnswers();
}

TEST_F(Polkit, ThatIsNotThereDecidesNothing) {
  polkit_.reset();
  ask(question());
  const PolkitAnswer answer = answers_.next();
  EXPECT_EQ(answer.kind, Kind::Failed);
  EXPECT_THAT(answer.reason,
              StartsWith("polkit has not answered: org.freedesktop.DBus.Error.ServiceUnknown"));
}

TEST_F(Polkit, ThatRestartsLosesItsQuestions) {
  for (int i = 0; i < 3; ++i) ask(toPerson());
  for (int i = 0; i < 3; ++i) polkit_->next();
  polkit_.reset();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(answers_.next().kind, Kind::Failed);
  polkit_ = std::make_unique<MockPolkit>(daemon_.address());
  expectNoMoreAnswers();
}

TEST_F(Polkit, TheBusMayRestart) {
  for (int i = 0; i < 100; ++i) ask(toPerson());
  polkit_->next();
  daemon_.stop();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(answers_.next().kind, Kind::Failed);
  ask(question());
  EXPECT_EQ(answers_.next().reason, "polkit has not answered: the system bus cannot be reached");

  daemon_.start();
  testsupport::waitForConnection(bus_);
  polkit_ = std::make_unique<MockPolkit>(daemon_.address());
  expectNoMoreAnswers();
}

TEST_F(Polkit, TheEndOfTheClientAnswersWhatIsOpen) {
  for (int i = 0; i < 100; ++i) ask(toPerson());
  const auto first = polkit_->next();
  client_.reset();
  EXPECT_EQ(answers_.size(), 100U);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(answers_.next().kind, Kind::Withdrawn);
  EXPECT_EQ(polkit_->nextCanceled(), first.cancellation);
  connect();
  polkit_->answerAllWith(Says::Yes);
  ask(question());
  EXPECT_TRUE(answers_.next().isYes());
}

TEST_F(Polkit, TheClientMayEndWithinAnAnswer) {
  ask(toPerson());
  polkit_->next();
  client_->ask(question(), [&](const PolkitAnswer& answer) {
    answers_.put(answer);
    client_.reset();
  });
  polkit_->answer(polkit_->next(), Says::Yes);
  EXPECT_TRUE(answers_.next().isYes());
  EXPECT_EQ(answers_.next().kind, Kind::Withdrawn);
}

TEST_F(Polkit, ManyThreadsMayAsk) {
  polkit_->answerAllWith(Says::Yes);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int j = 0; j < 50; ++j) ask(question());
    });
  for (std::thread& each : threads) each.join();
  for (int i = 0; i < 200; ++i) EXPECT_TRUE(answers_.next().isYes());
  EXPECT_THAT(polkit_->complaints(), IsEmpty());
}

}  // namespace
