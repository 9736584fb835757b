#include "platform/services/Authorization.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

#include "platform/services/Grant.h"
#include "platform/services/ServiceManagement.h"
#include "platform/services/SystemRoot.h"

namespace {

using namespace platform;

constexpr AuthorizationFlags allFlags = kAuthorizationFlagInteractionAllowed |
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
  static constexpr std::string_view right = "com.apple.ServiceManagement.blesshelper";
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
    EXPECT_EQ(ask(right, "L\xC3\xA4sst du das zu?", allFlags, &reference), answer);
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
  EXPECT_EQ(ask(right, nullptr, allFlags, &reference), errAuthorizationSuccess);
  EXPECT_EQ(heard, "An application wants to install or remove a helper.");
}

TEST_F(AuthorizationTest, EachReferenceIsItsOwnAndStays) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  AuthorizationRef first = nullptr;
  AuthorizationRef second = nullptr;
  ask(right, nullptr, allFlags, &first);
  ask(right, nullptr, allFlags, &second);
  EXPECT_NE(first, second);
  EXPECT_TRUE(isGranted(first));
  EXPECT_TRUE(isGranted(second));
  EXPECT_FALSE(isGranted(nullptr));
  int other = 0;
  EXPECT_FALSE(isGranted(reinterpret_cast<AuthorizationRef>(&other)));
}

TEST_F(AuthorizationTest, WithoutInteractionNobodyIsAsked) {
  setAuthorizationAgent([](std::string_view) -> OSStatus {
    ADD_FAILURE() << "asked";
    return errAuthorizationSuccess;
  });
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask(right, nullptr, 0, &reference), errAuthorizationInteractionNotAllowed);
  EXPECT_EQ(reference, nullptr);
}

TEST_F(AuthorizationTest, OtherRightsAreDenied) {
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask("system.privilege.admin", nullptr, allFlags, &reference), errAuthorizationDenied);
  EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, allFlags, &reference), errAuthorizationDenied);
  const AuthorizationRights none{0, nullptr};
  EXPECT_EQ(AuthorizationCreate(&none, nullptr, allFlags, &reference), errAuthorizationDenied);
}

TEST_F(AuthorizationTest, NoAgentAnswersForTheSystemRoot) {
  SystemRoot::setCurrent(SystemRoot("/"));
  setAuthorizationAgent(fixedAuthorizationAgent(errAuthorizationSuccess));
  AuthorizationRef reference = nullptr;
  EXPECT_EQ(ask(right, nullptr, allFlags, &reference), errAuthorizationInteractionNotAllowed);
}

TEST_F(AuthorizationTest, WithoutAnAuthorizationNothingIsChanged) {
  std::shared_ptr<NSError> error;
  EXPECT_FALSE(SMJobBless(kSMDomainSystemLaunchd, str("com.x"), nullptr, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain()->UTF8String(), WLServiceManagementErrorDomain);
  EXPECT_FALSE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), nullptr, true, nullptr));
}

/// Runs the terminal's agent in a child whose controlling terminal is ours to type on. Gives status
/// and screen.
struct TerminalRun {
  int status = 0;
  std::string screen;
};
TerminalRun runOnTerminal(std::string_view typed) {
  int master = -1;
  const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
  if (child == 0) {
    const OSStatus status = terminalAuthorizationAgent()("May \x1b[2J it?");
    ::_exit(status == 0 ? 10 : -status % 100);
  }
  TerminalRun run;
  std::array<char, 256> buffer{};
  while (run.screen.find("[y/N/c] ") == std::string::npos) {
    const ssize_t got = ::read(master, buffer.data(), buffer.size());
    if (got <= 0) break;
    run.screen.append(buffer.data(), static_cast<std::size_t>(got));
  }
  EXPECT_EQ(::write(master, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
  int status = 0;
  ::waitpid(child, &status, 0);
  ::close(master);
  run.status = WEXITSTATUS(status);
  return run;
}

TEST_F(AuthorizationTest, TerminalAsksAndTakesTheAnswer) {
  const TerminalRun allowed = runOnTerminal("y\n");
  EXPECT_EQ(allowed.status, 10);
  EXPECT_EQ(allowed.screen, "May  [2J it?\r\nAllow? [y/N/c] ");
  EXPECT_EQ(runOnTerminal("n\n").status, 5);
  EXPECT_EQ(runOnTerminal("\n").status, 5);
  EXPECT_EQ(runOnTerminal("c\n").status, 6);
  EXPECT_EQ(runOnTerminal("\x04").status, 6);  // end of input
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

}  // namespace
