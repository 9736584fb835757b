// SPDX-License-Identifier: Apache-2.0

// The class methods: checking, installing and removing.
#include "tests/support/ErrorText.h"
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

using platform::ScriptedOutcome;
using platform::str;

class Installation : public ClientTest {
 protected:
  WLHIDEventRouterClient::CompletionHandler handler() {
    return [this](bool success, const std::shared_ptr<platform::NSError>& error) {
      platform_.trace().record("handler " + std::to_string(success) + " " +
                               platform::descriptionOf(error));
    };
  }
  static std::string authorized(const std::string& environment, int status = 0) {
    return "AuthorizationCreate(rights={com.apple.ServiceManagement.blesshelper length=0 "
           "value=null flags=0}, environment=" +
           environment + ", flags=19) -> " + std::to_string(status);
  }
  static std::string bless() {
    return "SMJobBless(kSMDomainSystemLaunchd, com.quillmar.hideventrouter, authorization 1)";
  }
  static std::string remove() {
    return "SMJobRemove(kSMDomainSystemLaunchd, com.quillmar.hideventrouter, authorization 1, "
           "wait=true)";
  }
};

TEST_F(Installation, SuccessCallsTheHandlerThenPostsOnceThenReturns) {
  platform_.uninstallHelper(kLabel);
  platform_.setBless([] { return ScriptedOutcome{true, nullptr}; });
  WLHIDEventRouterClient::installWithPrompt_completionHandler(str("Go"), handler());
  platform_.trace().record("returned");
  EXPECT_TRUE(sameTrace(sequence({authorized("{prompt length=2 value=Go flags=0}"), check(false),
                                  bless(), "handler 1 (null)", posted(), "returned"}),
                        taken()));
}

TEST_F(Installation, CancelGivesTheHandlerTheStatusAndPostsNothing) {
  platform_.setAuthorizationStatus(-60006);
  WLHIDEventRouterClient::installWithPrompt_completionHandler(str("Go"), handler());
  EXPECT_TRUE(sameTrace({authorized("{prompt length=2 value=Go flags=0}", -60006),
                         "handler 0 " + testsupport::errorText("NSOSStatusErrorDomain", -60006)},
                        taken()));
}

TEST_F(Installation, UninstallWithNothingInstalledGivesNoErrorAndPostsNothing) {
  platform_.uninstallHelper(kLabel);
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(nullptr, handler());
  EXPECT_TRUE(sameTrace(sequence({authorized("null"), check(false), "handler 0 (null)"}), taken()));
}

TEST_F(Installation, UninstallOfAnotherVersionGivesNoErrorAndPostsNothing) {
  platform_.installHelper(kLabel, "8");
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(nullptr, handler());
  EXPECT_TRUE(
      sameTrace(sequence({authorized("null"), installedCheck("8"), "handler 0 (null)"}), taken()));
}

TEST_F(Installation, UninstallThatSucceedsAnnouncesItselfLikeAnInstall) {
  platform_.setRemoval([] { return ScriptedOutcome{true, nullptr}; });
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(nullptr, handler());
  EXPECT_TRUE(
      sameTrace(sequence({authorized("null"), check(true), remove(), "handler 1 (null)", posted()}),
                taken()));
}

TEST_F(Installation, WithoutAHandlerTheNotificationIsPostedAllTheSame) {
  platform_.uninstallHelper(kLabel);
  platform_.setBless([] { return ScriptedOutcome{true, nullptr}; });
  WLHIDEventRouterClient::installWithPrompt_completionHandler(nullptr, nullptr);
  EXPECT_EQ(taken().back(), posted());
}

TEST_F(Installation, AFailedBlessGivesTheHandlerItsErrorUnchanged) {
  const auto error = routerError(12, platform::NSPOSIXErrorDomain);
  platform_.uninstallHelper(kLabel);
  platform_.setBless([error] { return ScriptedOutcome{false, error}; });
  std::shared_ptr<platform::NSError> received;
  WLHIDEventRouterClient::installWithPrompt_completionHandler(
      nullptr, [&received](bool success, const auto& given) {
        EXPECT_FALSE(success);
        received = given;
      });
  EXPECT_EQ(received, error);
}

TEST_F(Installation, IsInstalledFollowsTheVersions) {
  EXPECT_TRUE(WLHIDEventRouterClient::isInstalled());
  platform_.installHelper(kLabel, "6");
  EXPECT_FALSE(WLHIDEventRouterClient::isInstalled());
  platform_.setBless([this] {
    platform_.installHelper(kLabel, "7");
    return ScriptedOutcome{true, nullptr};
  });
  WLHIDEventRouterClient::installWithPrompt_completionHandler(nullptr, nullptr);
  EXPECT_TRUE(WLHIDEventRouterClient::isInstalled());
}

TEST_F(Installation, EveryClientHearsOfIt) {
  platform_.uninstallHelper(kLabel);
  const auto first = newClient();
  const auto second = newClient();
  platform_.setBless([this] {
    platform_.installHelper(kLabel, "7");
    return ScriptedOutcome{true, nullptr};
  });
  WLHIDEventRouterClient::installWithPrompt_completionHandler(nullptr, nullptr);
  EXPECT_EQ(first->eventRouterStatus(), WLHIDEventRouterStatusInstalled);
  EXPECT_EQ(second->eventRouterStatus(), WLHIDEventRouterStatusInstalled);
}

}  // namespace
}  // namespace test
