// SPDX-License-Identifier: Apache-2.0

// The helper manager on a real root: what counts as installed, and the effects of installing and
// removing.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "tests/integration/jobd/SuiteFixture.h"

namespace {

using namespace jobdtest;
using Manager = KQPrivilegedHelperManager;

class HelperManager : public JobdSuite {
 protected:
  static bool isInstalled() {
    return Manager::isPriviledgedHelperInstalledWithLabel(platform::str(kEchoLabel));
  }
  static bool install(std::shared_ptr<platform::NSError>* error) {
    return Manager::blessPriviledgedXCPHelperWithLabel_prompt_returnError(
        platform::str(kEchoLabel), platform::str("May it?"), error);
  }
  static bool uninstall(std::shared_ptr<platform::NSError>* error) {
    return Manager::removePriviledgedXCPHelperWithLabel_prompt_returnError(
        platform::str(kEchoLabel), nullptr, error);
  }
};

TEST_F(HelperManager, InstallsAndRemoves) {
  std::shared_ptr<platform::NSError> error;
  EXPECT_FALSE(isInstalled());
  ASSERT_TRUE(install(&error)) << platform::descriptionOf(error);
  EXPECT_TRUE(isInstalled());
  Client client = connect();
  const Process helper = client.process();
  ASSERT_TRUE(install(&error)) << "again, over itself: " << platform::descriptionOf(error);
  EXPECT_TRUE(isInstalled());
  EXPECT_FALSE(helper.isThere());
  ASSERT_TRUE(uninstall(&error));
  EXPECT_EQ(error, nullptr);
  EXPECT_FALSE(isInstalled());
  EXPECT_FALSE(uninstall(&error));
  EXPECT_EQ(error, nullptr);
}

TEST_F(HelperManager, AnotherVersionCountsAsNotInstalledAndIsReplaced) {
  for (const std::string version : {"0.9", "1.0.0", "2.0"}) {
    ASSERT_TRUE(bless(echoImage(version)).succeeded());
    EXPECT_FALSE(isInstalled()) << version;
    std::shared_ptr<platform::NSError> error;
    EXPECT_FALSE(uninstall(&error)) << "another version's job is left alone";
    EXPECT_EQ(error, nullptr);
    EXPECT_TRUE(std::filesystem::exists(root.helperTool(kEchoLabel)));
  }
  std::shared_ptr<platform::NSError> error;
  ASSERT_TRUE(install(&error)) << platform::descriptionOf(error);
  EXPECT_TRUE(isInstalled());
}

TEST_F(HelperManager, ADeniedAuthorizationChangesNothing) {
  for (const auto status : {platform::errAuthorizationDenied, platform::errAuthorizationCanceled}) {
    platform::setAuthorizationAgent(platform::fixedAuthorizationAgent(status));
    std::shared_ptr<platform::NSError> error;
    EXPECT_FALSE(install(&error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain()->UTF8String(), platform::NSOSStatusErrorDomain);
    EXPECT_EQ(error->code(), status);
    EXPECT_EQ(error->userInfo(), nullptr);
    EXPECT_THAT(error->description(), testing::HasSubstr("so nothing was changed"));
  }
  EXPECT_FALSE(std::filesystem::exists(root.path()));
}

TEST_F(HelperManager, WithoutATerminalThePersonIsToldWhatIsMissing) {
  platform::setAuthorizationAgent(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::setsid();
    std::shared_ptr<platform::NSError> error;
    const bool isInstalled = install(&error);
    const bool hasWords =
        error && error->description().find("this program has no terminal") != std::string::npos;
    ::_exit(!isInstalled && hasWords && error->userInfo() == nullptr ? 42 : 1);
  }
  int end = 0;
  ::waitpid(child, &end, 0);
  EXPECT_EQ(WEXITSTATUS(end), 42);
  EXPECT_FALSE(std::filesystem::exists(root.path()));
}

TEST_F(HelperManager, AnExecutableThatWasDeletedIsNotInstalled) {
  ASSERT_TRUE(install(nullptr));
  std::filesystem::remove(root.helperTool(kEchoLabel));
  EXPECT_FALSE(isInstalled());
  ASSERT_TRUE(install(nullptr));
  EXPECT_TRUE(isInstalled());
}

}  // namespace
