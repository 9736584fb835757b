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
#include "SystemAuthorityFixture.h"

namespace {

using namespace systemauthoritytest;  // NOLINT: the fixture's

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
  EXPECT_EQ(question.details.at("program"),
            std::filesystem::read_symlink("/proc/self/exe").string());
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

TEST_F(SystemAuthorityTest, IfThereIsNobodyToAskTheNextQuestionNeedNotWait) {
  answers_ = {needsPerson(), needsPerson()};
  auto permit = ask();
  EXPECT_THAT(takeEvents(), testing::Contains("ask route of a person"));
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

TEST_F(SystemAuthorityTest, TheBeginningOfARoutingIsOnRecord) {
  answers_ = {yes()};
  auto permit = ask();
  takeEvents();
  permit->noteBeginning();
  EXPECT_THAT(takeEvents(), ElementsAre("begun"));
  SessionState state = inFront();
  state.isLocked = true;
  changed_(state);
  takeEvents();
  permit->noteBeginning();
  EXPECT_THAT(takeEvents(), ElementsAre()) << "it came too late";
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

TEST_F(SystemAuthorityTest, ADeviceThatIsGoneIsRefused) {
  device_.reset();
  const auto permit = ask();
  EXPECT_EQ(takeEvents().back(), "refused, as it is gone: the device has gone away");
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

TEST_F(SystemAuthorityTest, WhatIsOnlyShownMayBeAMomentOldAndADecisionMayNot) {
  const router::RoutableDevice shown{{}, {DeviceClass::Sensitive, "as it was", {}}, nullptr};
  sources_.shownDevice = [&](const router::DeviceDescription&) { return std::optional(shown); };
  device_.reset();
  makeAuthority();
  EXPECT_EQ(authority_->classOf({})->reason, "as it was");
  auto permit = preview();
  EXPECT_THAT(takeEvents(), testing::Not(testing::Contains(testing::HasSubstr("gone"))));
  permit = ask();
  EXPECT_THAT(takeEvents(), testing::Contains("refused, as it is gone: the device has gone away"));
}

}  // namespace
