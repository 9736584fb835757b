// SPDX-License-Identifier: Apache-2.0

#include "platform/services/Authorization.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/services/Grant.h"
#include "platform/services/ServiceError.h"
#include "platform/services/ServiceManagement.h"
#include "platform/services/SystemRoot.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/services/FakeDaemon.h"

namespace {

using namespace platform;

constexpr AuthorizationFlags kAllFlags = kAuthorizationFlagInteractionAllowed |
                                         kAuthorizationFlagExtendRights |
                                         kAuthorizationFlagPreAuthorize;

OSStatus ask(std::string_view right, const char* prompt, AuthorizationFlags flags,
             AuthorizationRef* reference) {
  const AuthorizationItem item{right, 0, nullptr, 0};
  const AuthorizationRights rights{1, &item};
  const std::string_view text = prompt == nullptr ? "" : prompt;
  const AuthorizationItem promptItem{"prompt", text.size(), text.data(), 0};
  const AuthorizationEnvironment environment{1, &promptItem};
  return AuthorizationCreate(&rights, prompt == nullptr ? nullptr : &environment, flags, reference);
}

class AuthorizationTest : public testing::Test {
 protected:
  void SetUp() override { SystemRoot::setCurrent(SystemRoot("/nowhere/of/a/user")); }
  void TearDown() override { setAuthorizationAgent(nullptr); }
  static constexpr std::string_view kRight = "com.apple.ServiceManagement.blesshelper";
};

TEST_F(AuthorizationTest, AgentHearsThePromptAndGivesTheStatus) {
  std::string heard;
  for (const OSStatus answer :
       {errAuthorizationSuccess, errAuthorizationDenied, errAuthorizationCanceled}) {
    setAuthorizationAgent([&](std::string_view prompt) {
      heard = prompt;
      return answer;
    });
    AuthorizationRef reference = nullptr;
    EXPECT_EQ(ask(kRight, "L\xC3\xA4sst du das zu?", kAllFlags, &reference), answer);
    EXPECT_EQ(heard, "L\xC3\xA4sst du das zu?");
    EXPECT_EQ(reference != nullptr, answer == errAuthorizationSuccess);
  }
}

TEST_F(AuthorizationTest, WithoutAPromptThePlatformsOwnSentenceIsAsked) {
  std::string heard;
  setAuthorizationAgent([&](std::string_view prompt) {
    heard = prompt;
    return errAuthorizationSuccess;
  });
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask(kRight, nullptr, kAllFlags, &reference), errAuthorizationSuccess);
  EXPECT_EQ(heard, "An application wants to install or remove a helper.");
}

TEST_F(AuthorizationTest, EachReferenceIsItsOwnAndStays) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  AuthorizationRef first = nullptr;
  AuthorizationRef second = nullptr;
  ask(kRight, nullptr, kAllFlags, &first);
  ask(kRight, nullptr, kAllFlags, &second);
  EXPECT_NE(first, second);
  EXPECT_NO_THROW(checkAuthorization(first));
  EXPECT_NO_THROW(checkAuthorization(second));
  EXPECT_THROW(checkAuthorization(nullptr), ServiceError);
  int other = 0;
  EXPECT_THROW(checkAuthorization(reinterpret_cast<AuthorizationRef>(&other)), ServiceError);
}

TEST_F(AuthorizationTest, WithoutInteractionNobodyIsAsked) {
  setAuthorizationAgent([](std::string_view) -> OSStatus {
    ADD_FAILURE() << "asked";
    return errAuthorizationSuccess;
  });
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask(kRight, nullptr, 0, &reference), errAuthorizationInteractionNotAllowed);
  EXPECT_EQ(reference, nullptr);
}

TEST_F(AuthorizationTest, OtherRightsAreDenied) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask("system.privilege.admin", nullptr, kAllFlags, &reference), errAuthorizationDenied);
  EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, kAllFlags, &reference), errAuthorizationDenied);
  const AuthorizationRights none{0, nullptr};
  EXPECT_EQ(AuthorizationCreate(&none, nullptr, kAllFlags, &reference), errAuthorizationDenied);
}

/// The system's own root, where no agent of this process may answer.
class SystemAuthorization : public AuthorizationTest {
 protected:
  void SetUp() override {
    ::chmod(temporary_.path().c_str(), 0755);
    SystemRoot::setSystemForTests(temporary_.path());
    SystemRoot::setCurrent(root_);
    setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  }
  void TearDown() override {
    setAuthorizationPurpose(ChangePurpose::Install);
    SystemRoot::setSystemForTests({});
    AuthorizationTest::TearDown();
  }
  /// The status that a daemon's answer leads to.
  [[nodiscard]] OSStatus statusFor(ServiceErrorCode code) {
    const servicestest::FakeDaemon daemon(
        root_, [code](const auto&) { return servicestest::FakeDaemon::no(code, "why"); });
    AuthorizationRef reference = nullptr;
    const OSStatus status = ask(kRight, nullptr, kAllFlags, &reference);
    EXPECT_EQ(reference, nullptr);
    return status;
  }
  testsupport::TemporaryDirectory temporary_;
  SystemRoot root_{temporary_.path()};
};

TEST_F(SystemAuthorization, WithoutADaemonNobodyCanBeAsked) {
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask(kRight, nullptr, kAllFlags, &reference), errAuthorizationInteractionNotAllowed);
  EXPECT_EQ(reference, nullptr);
}

TEST_F(SystemAuthorization, TheDaemonsAnswerIsTheStatus) {
  EXPECT_EQ(statusFor(ServiceErrorCode::NotPermitted), errAuthorizationDenied);
  EXPECT_EQ(statusFor(ServiceErrorCode::Canceled), errAuthorizationCanceled);
  EXPECT_EQ(statusFor(ServiceErrorCode::InteractionNotAllowed),
            errAuthorizationInteractionNotAllowed);
}

TEST_F(SystemAuthorization, TheDaemonIsToldThePurposeAndThePrompt) {
  std::vector<ControlRequest> requests;
  {
    const servicestest::FakeDaemon daemon(root_, [&](const ControlRequest& request) {
      requests.push_back(request);
      return servicestest::FakeDaemon::yes(request);
    });
    AuthorizationRef reference = nullptr;
    EXPECT_EQ(ask(kRight, nullptr, kAllFlags, &reference), errAuthorizationSuccess);
    setAuthorizationPurpose(ChangePurpose::Remove);
    EXPECT_EQ(ask(kRight, "please", kAllFlags, nullptr), errAuthorizationSuccess);
  }
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].label, kSystemJobLabel);
  EXPECT_EQ(requests[0].purpose, ChangePurpose::Install);
  EXPECT_EQ(requests[0].prompt, "");
  EXPECT_EQ(requests[1].purpose, ChangePurpose::Remove);
  EXPECT_EQ(requests[1].prompt, "please");
}

TEST_F(SystemAuthorization, ThePermissionIsTheConnections) {
  const servicestest::FakeDaemon daemon(root_);
  AuthorizationRef reference = nullptr;
  ASSERT_EQ(ask(kRight, nullptr, kAllFlags, &reference), errAuthorizationSuccess);
  const auto label = str(kSystemJobLabel);
  EXPECT_TRUE(SMJobRemove(kSMDomainSystemLaunchd, label, reference, true, nullptr));
  const std::string name(kSystemJobLabel);
  EXPECT_THAT(daemon.asked(), testing::ElementsAre("authorize " + name, "remove " + name))
      << "it is not asked for again";
}

TEST_F(AuthorizationTest, WithoutAnAuthorizationNothingIsChanged) {
  std::shared_ptr<NSError> error;
  EXPECT_FALSE(SMJobBless(kSMDomainSystemLaunchd, str("com.x"), nullptr, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain()->UTF8String(), WLServiceManagementErrorDomain);
  EXPECT_FALSE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), nullptr, true, nullptr));
}

/// Runs the terminal agent in a child and types on its controlling terminal, one line per question.
/// Has the resulting status and the text on the screen.
struct TerminalRun {
  int status = 0;
  std::string screen;
};
TerminalRun runOnTerminal(const std::vector<std::string>& typed,
                          std::string_view prompt = "May it?") {
  int master = -1;
  const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
  if (child == 0) {
    const OSStatus status = terminalAuthorizationAgent()(prompt);
    ::_exit(status == 0 ? 10 : -status % 100);
  }
  TerminalRun run;
  std::array<char, 256> buffer{};
  const auto showUntil = [&](std::string_view end) {
    while (!run.screen.ends_with(end)) {
      const ssize_t got = ::read(master, buffer.data(), buffer.size());
      if (got <= 0) return;
      run.screen.append(buffer.data(), static_cast<std::size_t>(got));
    }
  };
  for (const auto& line : typed) {
    showUntil(" > ");
    EXPECT_EQ(::write(master, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }
  showUntil("no end");
  int status = 0;
  ::waitpid(child, &status, 0);
  ::close(master);
  run.status = WEXITSTATUS(status);
  return run;
}

TEST_F(AuthorizationTest, TerminalNamesWhoAsksForWhatAndWhere) {
  const TerminalRun run = runOnTerminal({"y\n"});
  EXPECT_EQ(run.status, 10);
  EXPECT_THAT(
      run.screen,
      testing::StartsWith("A program asks for permission to install or replace a privileged "
                          "helper.\r\n  program   " +
                          std::filesystem::read_symlink("/proc/self/exe").string() + " (process "));
  EXPECT_THAT(run.screen, testing::HasSubstr("\r\n  root      /nowhere/of/a/user\r\n"));
  EXPECT_THAT(run.screen, testing::HasSubstr("\r\n  it says   May it?\r\n"));
  EXPECT_THAT(run.screen, testing::HasSubstr("Allow it? y: yes, n or Enter: no, c: cancel > "));
}

TEST_F(AuthorizationTest, TerminalSaysThatARemovalIsOne) {
  setAuthorizationPurpose(ChangePurpose::Remove);
  const TerminalRun run = runOnTerminal({"n\n"});
  setAuthorizationPurpose(ChangePurpose::Install);
  EXPECT_THAT(run.screen, testing::StartsWith(
                              "A program asks for permission to remove a privileged helper.\r\n"));
}

TEST_F(AuthorizationTest, TerminalTakesTheAnswer) {
  for (const char* yes : {"y\n", "Y\n", "yes\n", " Yes \n"})
    EXPECT_EQ(runOnTerminal({yes}).status, 10) << yes;
  for (const char* no : {"n\n", "No\n", "\n"}) EXPECT_EQ(runOnTerminal({no}).status, 5) << no;
  for (const char* cancel : {"c\n", "cancel\n", "\x04"})
    EXPECT_EQ(runOnTerminal({cancel}).status, 6) << cancel;
}

TEST_F(AuthorizationTest, TerminalAsksAgainAfterATypoAndThenTakesItAsNo) {
  const TerminalRun run = runOnTerminal({"t\n", "yy\n", "y\n"});
  EXPECT_EQ(run.status, 10);
  EXPECT_THAT(run.screen,
              testing::HasSubstr("\"t\" is not an answer. y: yes, n or Enter: no, c: cancel > "));
  const TerminalRun never = runOnTerminal({"t\n", "t\n", "t\n"});
  EXPECT_EQ(never.status, 5);
  EXPECT_THAT(never.screen, testing::HasSubstr("That is taken as no.\r\n"));
}

TEST_F(AuthorizationTest, APromptCannotSteerTheTerminalOrLookLikeTheQuestion) {
  const TerminalRun run = runOnTerminal({"n\n"},
                                        "May \x1b[2J\xC2\x9B"
                                        "31m it\xE2\x80\xAE?\nAllow it? y: yes > ");
  EXPECT_THAT(run.screen,
              testing::HasSubstr("  it says   May \\x1b[2J\\x9b31m it\\u202e? Allow it?"));
  EXPECT_EQ(run.screen.find('\x1b'), std::string::npos);
}

TEST_F(AuthorizationTest, WithoutATerminalInteractionIsNotAllowed) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::setsid();
    ::_exit(terminalAuthorizationAgent()("x") == errAuthorizationInteractionNotAllowed ? 10 : 11);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 10);
}

TEST_F(AuthorizationTest, NumbersAreThePlatforms) {
  EXPECT_EQ(errAuthorizationSuccess, 0);
  EXPECT_EQ(errAuthorizationDenied, -60005);
  EXPECT_EQ(errAuthorizationCanceled, -60006);
  EXPECT_EQ(errAuthorizationInteractionNotAllowed, -60007);
  EXPECT_EQ(kAuthorizationFlagInteractionAllowed, 1U);
  EXPECT_EQ(kAuthorizationFlagExtendRights, 2U);
  EXPECT_EQ(kAuthorizationFlagPreAuthorize, 16U);
}

TEST_F(AuthorizationTest, OnlyTheFlagOfInteractionAllowsAQuestion) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask(kRight, nullptr, kAllFlags & ~kAuthorizationFlagInteractionAllowed, &reference),
            errAuthorizationInteractionNotAllowed);
  EXPECT_EQ(ask(kRight, nullptr, kAuthorizationFlagInteractionAllowed, &reference),
            errAuthorizationSuccess);
}

TEST_F(AuthorizationTest, EveryRightThatIsAskedForMustBeKnown) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  const std::array<AuthorizationItem, 3> items{{{kRight, 0, nullptr, 0},
                                                {kRight, 0, nullptr, 0},
                                                {"system.privilege.admin", 0, nullptr, 0}}};
  const auto statusFor = [&](std::uint32_t count, const AuthorizationItem* first) {
    const AuthorizationRights rights{count, first};
    AuthorizationRef reference = nullptr;
    return AuthorizationCreate(&rights, nullptr, kAllFlags, &reference);
  };
  EXPECT_EQ(statusFor(2, items.data()), errAuthorizationSuccess) << "the third is not of the set";
  EXPECT_EQ(statusFor(3, items.data()), errAuthorizationDenied);
  EXPECT_EQ(statusFor(0, items.data()), errAuthorizationDenied);
  EXPECT_EQ(statusFor(1, nullptr), errAuthorizationDenied);
}

TEST_F(AuthorizationTest, WithoutAPlaceForTheReferenceTheStatusAloneComesBack) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  EXPECT_EQ(ask(kRight, nullptr, kAllFlags, nullptr), errAuthorizationSuccess);
  EXPECT_EQ(ask("other", nullptr, kAllFlags, nullptr), errAuthorizationDenied);
}

TEST_F(AuthorizationTest, AReferenceFromBeforeDoesNotOutliveARefusal) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  AuthorizationRef reference = nullptr;
  ASSERT_EQ(ask(kRight, nullptr, kAllFlags, &reference), errAuthorizationSuccess);
  ASSERT_NE(reference, nullptr);
  EXPECT_EQ(ask("other", nullptr, kAllFlags, &reference), errAuthorizationDenied);
  EXPECT_EQ(reference, nullptr);
}

/// The prompt that the agent receives for an environment with these items.
std::string heardPrompt(const AuthorizationEnvironment& environment) {
  std::string heard;
  setAuthorizationAgent([&](std::string_view prompt) {
    heard = prompt;
    return errAuthorizationDenied;
  });
  const AuthorizationItem item{"com.apple.ServiceManagement.blesshelper", 0, nullptr, 0};
  const AuthorizationRights rights{1, &item};
  AuthorizationRef reference = nullptr;
  AuthorizationCreate(&rights, &environment, kAllFlags, &reference);
  return heard;
}

TEST_F(AuthorizationTest, ThePromptIsTheItemOfThatName) {
  const std::string own = "An application wants to install or remove a helper.";
  const std::array<AuthorizationItem, 2> items{{{"icon", 4, "/a/b", 0}, {"prompt", 3, "May", 0}}};
  EXPECT_EQ(heardPrompt({2, items.data()}), "May");
  EXPECT_EQ(heardPrompt({1, items.data()}), own) << "the second is not of the set";
  EXPECT_EQ(heardPrompt({1, nullptr}), own);
  const AuthorizationItem without{"prompt", 5, nullptr, 0};
  EXPECT_EQ(heardPrompt({1, &without}), own);
}

TEST_F(AuthorizationTest, APromptIsTakenUpToItsLimit) {
  const std::string words = std::string(4095, 'a') + "bc";
  AuthorizationItem item{"prompt", 4096, words.data(), 0};
  EXPECT_EQ(heardPrompt({1, &item}), words.substr(0, 4096));
  item.valueLength = 4097;
  EXPECT_EQ(heardPrompt({1, &item}), words.substr(0, 4096));
}

TEST_F(AuthorizationTest, TerminalSaysNothingForAProgramThatSaysNothing) {
  const TerminalRun run =
      runOnTerminal({"y\n"}, "An application wants to install or remove a helper.");
  EXPECT_EQ(run.status, 10);
  EXPECT_EQ(run.screen.find("it says"), std::string::npos);
}

TEST_F(AuthorizationTest, TerminalReadsSoMuchOfALineAndEchoesLess) {
  const std::string blanks(255, ' ');
  EXPECT_EQ(runOnTerminal({blanks + "y\n"}).status, 10);
  EXPECT_EQ(runOnTerminal({blanks + " y\n"}).status, 5) << "what is beyond is not read";
  EXPECT_EQ(runOnTerminal({"\ty\t\n"}).status, 10);
  const TerminalRun run =
      runOnTerminal({"abcdefghijklmnopqrst\n", "abcdefghijklmnopqrstu\n", "n\n"});
  EXPECT_THAT(run.screen, testing::HasSubstr("\"abcdefghijklmnopqrst\" is not an answer. "));
  EXPECT_THAT(run.screen, testing::HasSubstr("\"abcdefghijklmnopqrs\u2026\" is not an answer. "));
}

TEST_F(AuthorizationTest, AnswersAreTakenInAnyCase) {
  EXPECT_EQ(runOnTerminal({"CANCEL\n"}).status, 6);
  EXPECT_EQ(runOnTerminal({"YES\n"}).status, 10);
}

TEST_F(AuthorizationTest, WhatWasTypedBeforeTheQuestionDoesNotAnswerIt) {
  std::array<int, 2> typed{};
  ASSERT_EQ(::pipe2(typed.data(), O_CLOEXEC), 0);
  int master = -1;
  const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
  if (child == 0) {
    char c = 0;
    if (::read(typed[0], &c, 1) != 1) ::_exit(1);
    const OSStatus status = terminalAuthorizationAgent()("May it?");
    ::_exit(status == 0 ? 10 : -status % 100);
  }
  EXPECT_EQ(::write(master, "y\n", 2), 2);
  std::string screen;
  std::array<char, 256> buffer{};
  const auto show = [&](std::string_view end) {
    while (!screen.ends_with(end)) {
      const ssize_t got = ::read(master, buffer.data(), buffer.size());
      if (got <= 0) return;
      screen.append(buffer.data(), static_cast<std::size_t>(got));
    }
  };
  show("y\r\n");  // it has reached the terminal
  EXPECT_EQ(::write(typed[1], "x", 1), 1);
  show(" > ");
  EXPECT_EQ(::write(master, "n\n", 2), 2);
  show("no end");
  int status = 0;
  ::waitpid(child, &status, 0);
  for (const int each : {master, typed[0], typed[1]}) ::close(each);
  EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST_F(AuthorizationTest, WithoutAnAgentTheTerminalIsAsked) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  setAuthorizationAgent(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::setsid();  // there is none
    AuthorizationRef reference = nullptr;
    const OSStatus status = ask(kRight, nullptr, kAllFlags, &reference);
    ::_exit(status == errAuthorizationInteractionNotAllowed ? 10 : 11);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 10);
}

}  // namespace
