// SPDX-License-Identifier: Apache-2.0

// What the system's authority asks, in which order, and what it answers. The events of a scenario:
//
//   in front; the rules say yes      session, ask route, granted, allowed
//   the rules want a person          session, ask route, ask route of a person, granted, allowed
//   no from either                   …, denied, refused
//   not in front                     session, denied, refused: nobody is asked
//   leaves the front while asked     …, denied, withdrawn, refused
//   leaves the front afterwards      …, allowed, revoked, revoked
//   dropped while asked              …, withdrawn
//   dropped while allowed            …, allowed, ended
//   exclusively                      session, ask route, ask take-exclusively, granted, allowed
#include "router/policy/SystemAuthority.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

using platform::system::PeerProcess;
using platform::system::PolkitAnswer;
using platform::system::PolkitClient;
using platform::system::PolkitQuestion;
using platform::system::SessionState;
using router::DeviceClass;
using router::Pending;
using router::RoutingRecord;
using testing::ElementsAre;
using testing::HasSubstr;
using Events = std::vector<std::string>;

/// Says that it has ended, if it ends before it is told not to.
class NotedPending final : public Pending {
 public:
  explicit NotedPending(std::function<void()> ended) : ended_(std::move(ended)) {}
  NotedPending(const NotedPending&) = delete;
  NotedPending& operator=(const NotedPending&) = delete;
  ~NotedPending() override { ended_(); }

 private:
  const std::function<void()> ended_;
};

class SystemAuthorityTest : public testing::Test {
 protected:
  SystemAuthorityTest() {
    sources_.device = [this](const router::DeviceDescription&) { return device_; };
    sources_.isGranted = [this](uid_t user, const platform::DeviceIdentity& identity) {
      return user == ::geteuid() && identity == granted_;
    };
    sources_.sessionOf = [this](const PeerProcess&) { return session_; };
    sources_.watchSession = [this](const std::string& session,
                                   platform::system::LoginSessions::Changed changed) {
      add("session " + session);
      changed_ = std::move(changed);
      if (first_) changed_(*first_);
      return std::make_unique<NotedPending>([] {});
    };
    sources_.askPolkit = [this](PolkitQuestion question, PolkitClient::Answered answered) {
      const std::string action = question.action.substr(question.action.rfind('.') + 1);
      add("ask " + action + (question.mayAskPerson ? " of a person" : ""));
      questions_.push_back(std::move(question));
      const std::size_t number = answered_.size();
      answered_.push_back(std::move(answered));
      isOpen_.push_back(true);
      if (!answers_.empty()) {
        const PolkitAnswer answer = answers_.front();
        answers_.erase(answers_.begin());
        say(number, answer);
      }
      return std::make_unique<NotedPending>([this, number] {
        if (isOpen_[number]) add("withdrawn");
        isOpen_[number] = false;
      });
    };
    sources_.record = [this](const RoutingRecord& record) {
      const char* const names[] = {"granted", "denied", "revoked", "ended"};
      add(std::string(names[static_cast<int>(record.kind)]) +
          (record.reason.empty() ? "" : ": " + record.reason));
    };
    sources_.now = [this] { return now_; };
  }

  static SessionState inFront() { return {"c1", 1000, true, false, false, false}; }
  static PolkitAnswer yes() { return {PolkitAnswer::Kind::Yes, false, ""}; }
  static PolkitAnswer no() { return {PolkitAnswer::Kind::No, false, "polkit says no"}; }
  static PolkitAnswer needsPerson() { return {PolkitAnswer::Kind::No, true, "nobody to ask"}; }

  void add(std::string event) { events_.push_back(std::move(event)); }
  Events takeEvents() { return std::exchange(events_, {}); }
  void say(std::size_t number, const PolkitAnswer& answer) {
    isOpen_[number] = false;
    answered_[number](answer);
  }
  void sayLast(const PolkitAnswer& answer) { say(answered_.size() - 1, answer); }

  void makeAuthority() {
    if (authority_ != nullptr) return;
    authority_ = std::make_unique<router::SystemAuthority>(sources_);
    std::string whyNot;
    auto process = PeerProcess::ofProcess(::getpid(), ::geteuid(), {}, whyNot);
    ASSERT_TRUE(process.has_value()) << whyNot;
    caller_ = authority_->callerFor(*process);
  }
  std::unique_ptr<router::RoutingPermit> ask(router::DeviceMode mode = router::DeviceMode::Shared) {
    router::RoutingRequest request;
    request.mode = mode;
    return ask(std::move(request));
  }
  std::unique_ptr<router::RoutingPermit> preview() {
    router::RoutingRequest request;
    request.isPreview = true;
    return ask(std::move(request));
  }
  std::unique_ptr<router::RoutingPermit> askToEnd(std::uint64_t session) {
    makeAuthority();
    return caller_->askToEnd(session, [this](const router::RoutingAnswer& answer) {
      add(answer.isAllowed ? "may end" : "may not: " + answer.reason);
    });
  }
  std::unique_ptr<router::RoutingPermit> ask(router::RoutingRequest request) {
    makeAuthority();
    request.device.registryEntryID = 0x10007;
    request.device.name = "Pen \"x\" $(y)";
    request.device.vendor = 0x56a;
    request.device.product = 0x2f;
    return caller_->ask(
        request,
        [this](const router::RoutingAnswer& answer) {
          reports_ = answer.reports;
          needsPerson_ = answer.needsPerson;
          add(answer.isAllowed ? "allowed" : "refused: " + answer.reason);
        },
        [this](const std::string& reason) { add("told: " + reason); });
  }

  router::AuthoritySources sources_;
  /// X in report 1, Y in report 2.
  std::optional<router::RoutableDevice> device_{router::RoutableDevice{
      {3, 0x56a, 0x2f, ""},
      {DeviceClass::Ordinary, "", {}},
      std::make_shared<const router::ReportDescriptor>(
          router::ReportDescriptor::parse(std::vector<std::uint8_t>{
              0x05, 0x01, 0x09, 0x05, 0xa1, 0x01, 0x85, 0x01, 0x75, 0x08, 0x95, 0x01,
              0x09, 0x30, 0x81, 0x02, 0x85, 0x02, 0x09, 0x31, 0x81, 0x02, 0xc0}))}};
  platform::DeviceIdentity granted_;
  std::optional<std::string> session_ = "c1";
  std::optional<SessionState> first_ = inFront();
  std::vector<PolkitAnswer> answers_;  // given within the question
  platform::system::LoginSessions::Changed changed_;
  std::vector<PolkitQuestion> questions_;
  std::vector<PolkitClient::Answered> answered_;
  std::vector<bool> isOpen_;
  router::ReportIDs reports_;
  bool needsPerson_ = false;
  router::QuestionLine::Clock::time_point now_{std::chrono::seconds(100'000)};
  Events events_;
  std::unique_ptr<router::SystemAuthority> authority_;
  std::shared_ptr<router::RoutingCaller> caller_;
};

TEST_F(SystemAuthorityTest, ARuleThatSaysYesIsEnough) {
  answers_ = {yes()};
  const auto permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "granted", "allowed"));
  EXPECT_EQ(reports_, router::ReportIDs(0b110)) << "those that the device declares";
}

TEST_F(SystemAuthorityTest, TheAnswerMayComeLater) {
  const auto permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route"));
  sayLast(yes());
  EXPECT_THAT(takeEvents(), ElementsAre("granted", "allowed"));
  sayLast(no());
  EXPECT_THAT(takeEvents(), ElementsAre()) << "an answer counts once";
}

TEST_F(SystemAuthorityTest, PolkitLearnsWhatTheRouterKnows) {
  device_->classification.deviceClass = DeviceClass::Sensitive;
  const auto permit = ask();
  const PolkitQuestion& question = questions_.at(0);
  EXPECT_EQ(question.process.processID(), ::getpid());
  EXPECT_EQ(question.process.user(), ::geteuid());
  EXPECT_EQ(question.action, "com.quillmar.hideventrouter.route-sensitive");
  EXPECT_EQ(question.details.at("vendor"), "056a");
  EXPECT_EQ(question.details.at("product"), "002f");
  EXPECT_EQ(question.details.at("class"), "sensitive");
  EXPECT_EQ(question.details.at("name"), "Pen \"x\" $(y)");
  EXPECT_FALSE(question.mayAskPerson);
  EXPECT_THAT(question.message, testing::StartsWith("The program “"));
  EXPECT_THAT(question.message, HasSubstr("wants to receive the input of the device “Pen"));
  EXPECT_THAT(question.message, HasSubstr("(056a:002f)"));
  EXPECT_THAT(question.message, HasSubstr("passwords included"));
  EXPECT_THAT(question.message, testing::Not(HasSubstr("$(")));
}

TEST_F(SystemAuthorityTest, APersonIsAskedIfTheRulesWantOne) {
  answers_ = {needsPerson(), yes()};
  const auto permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "ask route of a person",
                                        "granted", "allowed"));
}

TEST_F(SystemAuthorityTest, APersonMaySayNoAndIsLeftAloneForAWhile) {
  answers_ = {needsPerson(), {PolkitAnswer::Kind::Dismissed, false, "the dialog was closed"}};
  auto permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "ask route of a person",
                                        "denied: the dialog was closed",
                                        "refused: not permitted: the dialog was closed"));
  answers_ = {needsPerson()};
  permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", HasSubstr("denied: "),
                                        HasSubstr("can be asked in 10 s")));
  now_ += std::chrono::seconds(10);
  answers_ = {needsPerson(), yes()};
  permit = ask();
  EXPECT_EQ(takeEvents().back(), "allowed");
}

TEST_F(SystemAuthorityTest, OneQuestionAtATimeIsPutToAPerson) {
  answers_ = {needsPerson()};
  const auto first = ask();
  answers_ = {needsPerson()};
  auto second = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "ask route of a person",
                                        "session c1", "ask route"));
  say(1, yes());
  EXPECT_THAT(takeEvents(), ElementsAre("granted", "allowed", "ask route of a person"));
  second.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("withdrawn"));
}

TEST_F(SystemAuthorityTest, ARuleThatSaysNoIsFinal) {
  answers_ = {no()};
  const auto permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "denied: polkit says no",
                                        "refused: not permitted: polkit says no"));
}

TEST_F(SystemAuthorityTest, PolkitWithoutAnAnswerIsANo) {
  answers_ = {{PolkitAnswer::Kind::Failed, false, "polkit did not answer in time"}};
  const auto permit = ask();
  EXPECT_EQ(takeEvents().back(), "refused: not permitted: polkit did not answer in time");
}

TEST_F(SystemAuthorityTest, NobodyIsAskedForASessionThatIsNotInFront) {
  first_->isActive = false;
  auto permit = ask();
  const std::string inactive = "the login session is not active";
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "denied: " + inactive,
                                        "refused: not permitted: " + inactive));
  first_ = inFront();
  first_->isLocked = true;
  permit = ask();
  EXPECT_EQ(takeEvents().back(), "refused: not permitted: the login session is locked");
  first_->hasEnded = true;
  permit = ask();
  EXPECT_EQ(takeEvents().back(), "refused: not permitted: the login session has ended");
}

TEST_F(SystemAuthorityTest, NothingIsAskedBeforeTheSessionIsKnown) {
  first_.reset();
  const auto permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1"));
  changed_(inFront());
  EXPECT_THAT(takeEvents(), ElementsAre("ask route"));
}

TEST_F(SystemAuthorityTest, ASessionThatLeavesTheFrontWithdrawsTheQuestion) {
  const auto permit = ask();
  takeEvents();
  SessionState state = inFront();
  state.isActive = false;
  changed_(state);
  EXPECT_THAT(takeEvents(),
              ElementsAre("denied: the login session is not active",
                          "refused: not permitted: the login session is not active", "withdrawn"));
  sayLast(yes());
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, APermissionEndsWithTheFrontAndDoesNotComeBack) {
  answers_ = {yes()};
  const auto permit = ask();
  takeEvents();
  changed_(inFront());  // something else about it has changed
  EXPECT_THAT(takeEvents(), ElementsAre());
  SessionState state = inFront();
  state.isLocked = true;
  changed_(state);
  EXPECT_THAT(takeEvents(), ElementsAre("revoked: the login session is locked",
                                        "told: the login session is locked"));
  changed_(inFront());
  changed_(state);
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, DroppingThePermitWithdrawsTheQuestion) {
  auto permit = ask();
  takeEvents();
  permit.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("withdrawn"));
  sayLast(yes());
  changed_(SessionState{});
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, DroppingThePermitEndsThePermission) {
  answers_ = {yes()};
  auto permit = ask();
  takeEvents();
  permit.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("ended"));
}

TEST_F(SystemAuthorityTest, ACallerInNoSessionGetsWhatPolkitPermitsAnyone) {
  session_.reset();
  answers_ = {yes()};
  const auto permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("ask route", "granted", "allowed"));
}

TEST_F(SystemAuthorityTest, TakingADeviceIsAskedToo) {
  answers_ = {yes(), needsPerson(), yes()};
  const auto permit = ask(router::DeviceMode::Exclusive);
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "ask take-exclusively",
                                        "ask take-exclusively of a person", "granted", "allowed"));
  EXPECT_THAT(questions_.back().message, HasSubstr("from all other programs"));
}

TEST_F(SystemAuthorityTest, OneRightIsNotTheOther) {
  answers_ = {yes(), no()};
  const auto permit = ask(router::DeviceMode::Exclusive);
  EXPECT_EQ(takeEvents().back(), "refused: not permitted: polkit says no");
}

TEST_F(SystemAuthorityTest, AGrantSparesTheQuestion) {
  device_->classification.deviceClass = DeviceClass::Sensitive;
  answers_ = {no()};
  auto permit = ask();
  EXPECT_THAT(takeEvents()[1], "ask route-sensitive");
  granted_ = device_->identity;
  answers_ = {yes()};
  permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "granted", "allowed"));
}

TEST_F(SystemAuthorityTest, ADeviceThatIsGoneIsRefused) {
  device_.reset();
  const auto permit = ask();
  EXPECT_EQ(takeEvents().back(), "refused: not permitted: the device has gone away");
}

// ---- To know the answer only

TEST_F(SystemAuthorityTest, APreviewIsAYesThatLeavesNoTrace) {
  answers_ = {yes()};
  auto permit = preview();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "allowed"));
  permit.reset();
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, APreviewAsksNobodyAndSaysThatSomebodyWouldBeAsked) {
  device_->classification.deviceClass = DeviceClass::Sensitive;
  answers_ = {needsPerson()};
  auto permit = preview();
  EXPECT_THAT(takeEvents(),
              ElementsAre("session c1", "ask route-sensitive", HasSubstr("refused: ")));
  EXPECT_TRUE(needsPerson_);
  // It is no question that a person could be tired of, and no no.
  answers_ = {needsPerson(), yes()};
  permit = ask();
  EXPECT_EQ(takeEvents().back(), "allowed");
}

TEST_F(SystemAuthorityTest, APreviewOfANoLeavesNoTrace) {
  answers_ = {no()};
  auto permit = preview();
  EXPECT_THAT(takeEvents(),
              ElementsAre("session c1", "ask route", "refused: not permitted: polkit says no"));
  EXPECT_FALSE(needsPerson_);
  first_->isLocked = true;
  permit = preview();
  EXPECT_THAT(takeEvents(),
              ElementsAre("session c1", "refused: not permitted: the login session is locked"));
  EXPECT_FALSE(needsPerson_);
}

TEST_F(SystemAuthorityTest, APreviewDoesNotWaitBehindAQuestion) {
  answers_ = {needsPerson()};
  const auto open = ask();
  takeEvents();
  answers_ = {needsPerson()};
  const auto permit = preview();
  EXPECT_TRUE(needsPerson_);
}

// ---- The end of another user's session

TEST_F(SystemAuthorityTest, AnEndIsAskedForWithoutAWordAboutTheSession) {
  const auto permit = askToEnd(17);
  EXPECT_THAT(takeEvents(), ElementsAre("ask end-session of a person"));
  const PolkitQuestion& question = questions_.at(0);
  EXPECT_EQ(question.process.processID(), ::getpid());
  EXPECT_THAT(question.message, HasSubstr("wants to end session 17 of the HID event router"));
  EXPECT_EQ(question.details.at("session"), "17");
  EXPECT_EQ(question.details.size(), 2U) << "and the program that asks";
  sayLast(yes());
  EXPECT_THAT(takeEvents(), ElementsAre("may end"));
  sayLast(no());
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, ANoToAnEndIsFollowedByAPause) {
  answers_ = {no()};
  auto permit = askToEnd(17);
  EXPECT_THAT(takeEvents(),
              ElementsAre("ask end-session of a person", "may not: not permitted: polkit says no"));
  permit = askToEnd(18);
  EXPECT_THAT(takeEvents(), ElementsAre(HasSubstr("can be asked in 10 s")));
}

TEST_F(SystemAuthorityTest, AnEndWaitsItsTurnAndIsWithdrawnWithItsPermit) {
  answers_ = {needsPerson()};
  auto routing = ask();
  takeEvents();
  auto permit = askToEnd(17);
  EXPECT_THAT(takeEvents(), ElementsAre());
  routing.reset();
  EXPECT_THAT(takeEvents(), testing::Contains("ask end-session of a person"));
  permit.reset();
  EXPECT_THAT(takeEvents(), ElementsAre("withdrawn"));
  sayLast(yes());
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, TheClassOfADeviceIsKnownWhileItIsThere) {
  device_->classification.reason = "it is a pen";
  makeAuthority();
  EXPECT_EQ(authority_->classOf({})->reason, "it is a pen");
  device_.reset();
  EXPECT_FALSE(authority_->classOf({}).has_value());
}

}  // namespace
