// SPDX-License-Identifier: Apache-2.0

// Installing and removing a helper: which platform calls are made, in which order, and what each
// outcome means.
#include "tests/support/ErrorText.h"
#include "tests/unit/helper-install/ManagerFixture.h"

namespace test {
namespace {

using platform::NSError;
using platform::ScriptedOutcome;
using platform::str;

class Blessing : public ManagerTest {
 protected:
  using Error = std::shared_ptr<NSError>;

  Blessing() {
    // A stale error, which every call must replace.
    error_ = makeError(999);
  }

  static Error makeError(std::int64_t code) {
    return NSError::errorWithDomain_code_userInfo(str(platform::NSPOSIXErrorDomain), code, nullptr);
  }
  bool bless(const char* prompt = nullptr) {
    return KQPrivilegedHelperManager::blessPriviledgedXCPHelperWithLabel_prompt_returnError(
        str(kLabel), platform::NSString::stringWithUTF8String(prompt), &error_);
  }
  bool remove(const char* prompt = nullptr) {
    return KQPrivilegedHelperManager::removePriviledgedXCPHelperWithLabel_prompt_returnError(
        str(kLabel), platform::NSString::stringWithUTF8String(prompt), &error_);
  }
  static platform::ScriptedPlatform::OutcomeScript outcome(bool success, Error error = nullptr) {
    return [success, error] { return ScriptedOutcome{success, error}; };
  }

  static std::string authorization(const std::string& environment = "null", int status = 0) {
    return "AuthorizationCreate(rights={com.apple.ServiceManagement.blesshelper length=0 "
           "value=null flags=0}, environment=" +
           environment + ", flags=19) -> " + std::to_string(status);
  }
  static std::string removal() {
    return "SMJobRemove(kSMDomainSystemLaunchd, com.quillmar.hideventrouter, authorization 1, "
           "wait=true)";
  }
  static std::string blessing() {
    return "SMJobBless(kSMDomainSystemLaunchd, com.quillmar.hideventrouter, authorization 1)";
  }
  static std::string removalLine(const std::string& error) {
    return "NSLog Error removing pre-existing copy of helper: " + error;
  }
  static inline const std::string kError12 = testsupport::errorText("NSPOSIXErrorDomain", 12);

  Error error_;
};

TEST_F(Blessing, WithoutAPromptThereIsNoEnvironment) {
  platform_.uninstallHelper(kLabel);
  remove();
  EXPECT_EQ(taken().at(0), authorization("null"));
}

TEST_F(Blessing, AnEmptyPromptIsAPrompt) {
  platform_.uninstallHelper(kLabel);
  remove("");
  EXPECT_EQ(taken().at(0), authorization("{prompt length=0 value= flags=0}"));
}

TEST_F(Blessing, ThePromptsLengthCountsItsBytes) {
  platform_.uninstallHelper(kLabel);
  remove("Gerät öffnen? 🎹");
  EXPECT_EQ(taken().at(0), authorization("{prompt length=20 value=Gerät öffnen? 🎹 flags=0}"));
}

TEST_F(Blessing, TheSameVersionIsRemovedWaitingAndBlessedAgain) {
  platform_.setRemoval(outcome(true));
  platform_.setBless(outcome(true));
  EXPECT_TRUE(bless());
  EXPECT_EQ(error_, nullptr);
  EXPECT_TRUE(sameTrace(sequence({authorization(), check(true), removal(), blessing()}), taken()));
}

TEST_F(Blessing, AnotherVersionIsBlessedWithoutRemoval) {
  platform_.installHelper(kLabel, "6");
  platform_.setBless(outcome(true));
  EXPECT_TRUE(bless());
  EXPECT_TRUE(sameTrace(sequence({authorization(), installedCheck("6"), blessing()}), taken()));
}

TEST_F(Blessing, RemovingWhatIsNotInstalledStillAsksForAuthorization) {
  platform_.uninstallHelper(kLabel);
  EXPECT_FALSE(remove());
  EXPECT_EQ(error_, nullptr);
  EXPECT_TRUE(sameTrace(sequence({authorization(), check(false)}), taken()));
}

TEST_F(Blessing, RemovingAnotherVersionLeavesItInPlace) {
  platform_.installHelper(kLabel, "6");
  EXPECT_FALSE(remove());
  EXPECT_EQ(error_, nullptr);
  EXPECT_TRUE(sameTrace(sequence({authorization(), installedCheck("6")}), taken()));
}

TEST_F(Blessing, ADeniedAuthorizationEndsEverything) {
  platform_.setAuthorizationStatus(platform::errAuthorizationDenied);
  EXPECT_FALSE(bless());
  ASSERT_NE(error_, nullptr);
  EXPECT_EQ(error_->domain()->UTF8String(), "NSOSStatusErrorDomain");
  EXPECT_EQ(error_->code(), -60005);
  EXPECT_EQ(error_->userInfo(), nullptr);
  EXPECT_TRUE(sameTrace({authorization("null", -60005)}, taken()));
  EXPECT_FALSE(remove());
  EXPECT_EQ(error_->code(), -60005);
  EXPECT_TRUE(sameTrace({authorization("null", -60005)}, taken()));
}

TEST_F(Blessing, RemovalThatSucceeds) {
  platform_.setRemoval(outcome(true));
  EXPECT_TRUE(remove());
  EXPECT_EQ(error_, nullptr);
  EXPECT_TRUE(sameTrace(sequence({authorization(), check(true), removal()}), taken()));
}

TEST_F(Blessing, RemovalThatFailsWithAnErrorLogsItAndHandsOutNone) {
  platform_.setRemoval(outcome(false, makeError(12)));
  EXPECT_FALSE(remove());
  EXPECT_EQ(error_, nullptr);
  EXPECT_TRUE(sameTrace(sequence({authorization(), check(true), removal(), removalLine(kError12)}),
                        taken()));
}

TEST_F(Blessing, RemovalThatFailsWithoutAnErrorIsSilent) {
  platform_.setRemoval(outcome(false));
  EXPECT_FALSE(remove());
  EXPECT_EQ(error_, nullptr);
  EXPECT_TRUE(sameTrace(sequence({authorization(), check(true), removal()}), taken()));
}

TEST_F(Blessing, AFailedRemovalDoesNotStopTheBless) {
  platform_.setRemoval(outcome(false, makeError(12)));
  platform_.setBless(outcome(true));
  EXPECT_TRUE(bless());
  EXPECT_EQ(error_, nullptr);
  EXPECT_TRUE(sameTrace(
      sequence({authorization(), check(true), removal(), removalLine(kError12), blessing()}),
      taken()));
}

TEST_F(Blessing, AFailedBlessHandsOutItsErrorUnchangedAndLogsNothing) {
  const Error failure = makeError(13);
  platform_.setRemoval(outcome(true));
  platform_.setBless(outcome(false, failure));
  EXPECT_FALSE(bless());
  EXPECT_EQ(error_, failure);
  EXPECT_TRUE(sameTrace(sequence({authorization(), check(true), removal(), blessing()}), taken()));
}

TEST_F(Blessing, AFailedBlessMayHaveNoError) {
  platform_.uninstallHelper(kLabel);
  platform_.setBless(outcome(false));
  EXPECT_FALSE(bless());
  EXPECT_EQ(error_, nullptr);
}

TEST_F(Blessing, WithoutAPlaceForTheErrorOnlyTheResultComesBack) {
  platform_.setRemoval(outcome(false, makeError(12)));
  platform_.setBless(outcome(true));
  EXPECT_TRUE(KQPrivilegedHelperManager::blessPriviledgedXCPHelperWithLabel_prompt_returnError(
      str(kLabel), nullptr, nullptr));
  EXPECT_FALSE(KQPrivilegedHelperManager::removePriviledgedXCPHelperWithLabel_prompt_returnError(
      str(kLabel), nullptr, nullptr));
  platform_.setAuthorizationStatus(platform::errAuthorizationCanceled);
  EXPECT_FALSE(KQPrivilegedHelperManager::blessPriviledgedXCPHelperWithLabel_prompt_returnError(
      str(kLabel), nullptr, nullptr));
}

}  // namespace
}  // namespace test
