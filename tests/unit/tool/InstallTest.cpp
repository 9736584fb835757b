// SPDX-License-Identifier: Apache-2.0

// wlhid install and wlhid uninstall, with every answer of the framework.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/services/Authorization.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceManagement.h"
#include "tests/unit/tool/VerbTest.h"

namespace tool {
namespace {

using platform::ScriptedOutcome;

/// The provider in place without a scripted platform.
const std::shared_ptr<platform::ServicesProvider> kMachineServices =
    platform::servicesProvider().load();

class InstallTest : public VerbTest {
 protected:
  InstallTest() {
    platform_.setBundleCopy(kLabel, "1.0");
    platform_.setBless([this] {
      platform_.installHelper(kLabel, "1.0");
      return ScriptedOutcome{true, nullptr};
    });
    platform_.setRemoval([this] {
      platform_.uninstallHelper(kLabel);
      return ScriptedOutcome{true, nullptr};
    });
  }
  ~InstallTest() override { platform::setAuthorizationAgent(nullptr); }

  static Outcome install(std::vector<std::string> more = {}) {
    more.insert(more.begin(), "install");
    return run(addInstallVerb, more);
  }
  static Outcome uninstall(std::vector<std::string> more = {}) {
    more.insert(more.begin(), "uninstall");
    return run(addUninstallVerb, more);
  }
  [[nodiscard]] bool asked() {
    for (const std::string& line : platform_.trace().take()) {
      if (line.starts_with("AuthorizationCreate")) return true;
    }
    return false;
  }
  /// The text of the prompt, or why there was none.
  [[nodiscard]] std::string question() {
    for (const std::string& line : platform_.trace().take()) {
      const std::size_t at = line.find("prompt length=");
      if (line.starts_with("AuthorizationCreate") && at != std::string::npos)
        return line.substr(at, line.find(" flags", at) - at);
    }
    return "no question with a text";
  }
};

TEST_F(InstallTest, SaysWhichVersionIsInstalled) {
  const Outcome outcome = install();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "The router is installed, version 1.0.\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(InstallTest, AFailureHasTheFrameworksReason) {
  platform_.setAuthorizationStatus(platform::errAuthorizationInteractionNotAllowed);
  EXPECT_TRUE(isRefusal(install(), 1,
                        "the router was not installed: there is no terminal to ask for "
                        "authorization on (--authorize answers without one) "
                        "(NSOSStatusErrorDomain -60007)"));
}

TEST_F(InstallTest, AnOlderVersionIsReplacedWithoutAWordANewerOneByForce) {
  platform_.installHelper(kLabel, "0.9");
  EXPECT_EQ(install().out, "The router is installed, version 1.0.\n");
  platform_.installHelper(kLabel, "2.0");
  static_cast<void>(platform_.trace().take());
  EXPECT_TRUE(isRefusal(install(), 1,
                        "the router was not installed: version 2.0 is installed, and this command "
                        "carries the older version 1.0 (--force replaces it anyway)"));
  EXPECT_FALSE(asked());
  const Outcome forced = install({"--force"});
  EXPECT_EQ(forced.status, 0);
  EXPECT_EQ(forced.out,
            "Replacing: version 2.0 is installed, and this command carries the older version "
            "1.0.\nThe router is installed, version 1.0.\n");
}

TEST_F(InstallTest, ThePromptIsTheQuestionsText) {
  static_cast<void>(install({"--prompt", "Why?"}));
  EXPECT_EQ(question(), "prompt length=4 value=Why?");
  static_cast<void>(uninstall({"--prompt", "Really?"}));
  EXPECT_EQ(question(), "prompt length=7 value=Really?");
}

TEST_F(InstallTest, RemovesWhatIsInstalled) {
  platform_.installHelper(kLabel, "1.0");
  const Outcome outcome = uninstall();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "The router has been removed.\n");
}

TEST_F(InstallTest, NothingIsAskedWhereNothingWouldBeRemoved) {
  EXPECT_TRUE(isRefusal(uninstall(), 1, "the router was not removed: it is not installed"));
  platform_.installHelper(kLabel, "0.9");
  EXPECT_TRUE(isRefusal(uninstall(), 1,
                        "the router was not removed: the installed version is 0.9, and this "
                        "command removes only its own, 1.0 (install that first: wlhid install)"));
  platform_.setFile(kInstalledCopy, {1, 2, 3});
  EXPECT_TRUE(
      isRefusal(uninstall(), 1,
                "the router was not removed: " + kInstalledCopy +
                    ": has no embedded property list (repair it first with: wlhid install)"));
  EXPECT_FALSE(asked());
}

TEST_F(InstallTest, ARemovalThatFailsSaysWhy) {
  platform_.installHelper(kLabel, "1.0");
  platform_.setRemoval([] {
    return ScriptedOutcome{
        false, platform::NSError::errorWithDomain_code_userInfo(platform::str("D"), 3, nullptr)};
  });
  const Outcome outcome = uninstall();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with("the router was not removed: ")) << outcome.err;
  platform_.setAuthorizationStatus(platform::errAuthorizationDenied);
  EXPECT_TRUE(isRefusal(uninstall(), 1,
                        "the router was not removed: authorization denied "
                        "(NSOSStatusErrorDomain -60005)"));
}

TEST_F(InstallTest, TheCommandLineAnswersWithOneOfThreeWords) {
  EXPECT_TRUE(isRefusal(install({"--authorize", "perhaps"}), 2,
                        "--authorize: perhaps is not allow, deny or cancel"));
  const auto answer = [](const std::string& word) {
    static_cast<void>(install({"--authorize", word}));
    platform::AuthorizationRef reference = nullptr;
    const platform::AuthorizationItem bless{"com.apple.ServiceManagement.blesshelper", 0, nullptr,
                                            0};
    const platform::AuthorizationRights rights{1, &bless};
    return kMachineServices->authorizationCreate(
        &rights, nullptr, platform::kAuthorizationFlagInteractionAllowed, &reference);
  };
  EXPECT_EQ(answer("allow"), platform::errAuthorizationSuccess);
  EXPECT_EQ(answer("deny"), platform::errAuthorizationDenied);
  EXPECT_EQ(answer("cancel"), platform::errAuthorizationCanceled);
}

/// The system's own root, with or without its job daemon.
class SystemInstallTest : public InstallTest {
 protected:
  SystemInstallTest() {
    ::chmod(system_.path().c_str(), 0755);
    platform::SystemRoot::setSystemForTests(system_.path());
    platform::SystemRoot::setCurrent(systemRoot_);
  }
  ~SystemInstallTest() override { platform::SystemRoot::setSystemForTests({}); }

  testsupport::TemporaryDirectory system_;
  platform::SystemRoot systemRoot_{system_.path()};
};

TEST_F(SystemInstallTest, AMissingDaemonIsNamedBeforeAnybodyIsAsked) {
  const Outcome outcome = install();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("Install the package wlhid-router"), std::string::npos) << outcome.err;
  platform_.installHelper(kLabel, "1.0");
  EXPECT_NE(uninstall().err.find("Install the package wlhid-router"), std::string::npos);
  EXPECT_FALSE(asked());
}

TEST_F(SystemInstallTest, WithoutAnAgentTheRemedyIsOne) {
  std::filesystem::create_directories(systemRoot_.controlEndpoint().parent_path());
  const platform::FileDescriptor daemon(
      platform::listenUnixSocket(systemRoot_.controlEndpoint().string(), SOCK_STREAM, 8, 0666));
  platform_.setAuthorizationStatus(platform::errAuthorizationInteractionNotAllowed);
  EXPECT_NE(install().err.find("start one with pkttyagent"), std::string::npos);
}

TEST_F(InstallTest, OnTheSystemsOwnRootTheCommandLineDoesNotAnswer) {
  platform::SystemRoot::setCurrent(platform::SystemRoot("/"));
  const std::string refusal =
      "--authorize is for a user's root; on the system's own root the system must ask";
  EXPECT_TRUE(isRefusal(install({"--authorize", "allow"}), 2, refusal));
  EXPECT_TRUE(isRefusal(uninstall({"--authorize", "allow"}), 2, refusal));
  EXPECT_FALSE(asked());
}

}  // namespace
}  // namespace tool
