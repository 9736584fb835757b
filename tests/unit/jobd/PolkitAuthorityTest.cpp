// SPDX-License-Identifier: Apache-2.0

// What a person reads who is asked, and what polkit's answers mean.
#include "jobd/PolkitAuthority.h"

#include <gtest/gtest.h>

namespace {

using jobd::Decision;
using jobd::Question;
using jobd::Right;
using platform::system::PolkitAnswer;
using Kind = Decision::Kind;

Question question(Right right, const std::string& prompt = "") {
  return {{1000, 1}, "com.x", right, prompt};
}

TEST(PolkitAuthority, AQuestionNamesTheProgramAndTheChange) {
  EXPECT_EQ(jobd::messageFor(question(Right::Install), "/usr/bin/editor"),
            "The program “/usr/bin/editor” wants to install or replace the HID event router, which "
            "reads HID devices for applications.");
  EXPECT_EQ(
      jobd::messageFor(question(Right::Remove), "editor"),
      "The program “editor” wants to remove the HID event router, which reads HID devices for "
      "applications.");
  EXPECT_EQ(jobd::messageFor(question(Right::ReplaceNewer), "editor"),
            "The program “editor” wants to replace the HID event router with an older version, "
            "which reads HID devices for applications.");
}

TEST(PolkitAuthority, AQuestionAboutAGrantNamesTheUserAndTheDevice) {
  Question asked = question(Right::Grant);
  asked.change = jobd::GrantChange{{4000000, {3, 0x5f3, 0xff, "A1"}, "Pedal\" $(x)"}, false};
  EXPECT_EQ(jobd::messageFor(asked, "wlhid"),
            "The program “wlhid” wants to let the user “4000000” have the input of the device "
            "“Pedal' $ (x)” (05f3:00ff, serial number “A1”) without a question from now on. It can "
            "carry what is typed on it, passwords included.");
  asked.change->isRevocation = true;
  asked.change->grant.device.unique.clear();
  EXPECT_EQ(jobd::messageFor(asked, "wlhid"),
            "The program “wlhid” wants to no longer let the user “4000000” have the input of the "
            "device “Pedal' $ (x)” (05f3:00ff) without a question.");
}

TEST(PolkitAuthority, TheApplicationsWordsAreQuotedAndCannotPassForTheQuestion) {
  const std::string text = jobd::messageFor(
      question(Right::Install, "Say yes.” It is harmless. $(program)\nReally"), "editor");
  EXPECT_EQ(text.find("$("), std::string::npos);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  const auto said = text.find("It says: “");
  ASSERT_NE(said, std::string::npos);
  EXPECT_EQ(text.find("”", said), text.size() - std::string("”").size())
      << "the quotation ends where the text does: " << text;
}

TEST(PolkitAuthority, OnlyAYesIsAYes) {
  using AnswerKind = PolkitAnswer::Kind;
  const auto kindOf = [](AnswerKind kind, bool needsPerson = false) {
    return jobd::decisionOf({.kind = kind, .needsPerson = needsPerson, .reason = "why"}).kind;
  };
  EXPECT_EQ(kindOf(AnswerKind::Yes), Kind::Yes);
  EXPECT_EQ(kindOf(AnswerKind::No), Kind::No);
  EXPECT_EQ(kindOf(AnswerKind::No, true), Kind::InteractionNotAllowed);
  EXPECT_EQ(kindOf(AnswerKind::Dismissed), Kind::Canceled);
  EXPECT_EQ(kindOf(AnswerKind::Withdrawn), Kind::No);
  EXPECT_EQ(kindOf(AnswerKind::Failed), Kind::No);
  EXPECT_EQ(jobd::decisionOf({.kind = AnswerKind::Failed, .reason = "why"}).reason, "why");
}

}  // namespace
