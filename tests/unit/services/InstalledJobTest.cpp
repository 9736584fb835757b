// SPDX-License-Identifier: Apache-2.0

#include "platform/services/InstalledJob.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/Grant.h"
#include "platform/services/JobFile.h"
#include "platform/services/ServiceError.h"
#include "platform/services/ServiceManagement.h"
#include "tests/support/Emulation.h"
#include "tests/support/ScopedVariable.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using namespace platform;
using testing::HasSubstr;
using testsupport::ScopedVariable;
using testsupport::writeFile;
namespace fs = std::filesystem;

class InstalledJob : public testing::Test {
 protected:
  InstalledJob() { SystemRoot::setCurrent(root_); }

  void job(const std::string& entries) const {
    writeFile(root_.jobFile("com.x"),
              "<plist version=\"1.0\"><dict><key>Label</key><string>com.x</string>" + entries +
                  "</dict></plist>");
  }
  void jobOf(const fs::path& program) const {
    job("<key>ProgramArguments</key><array><string>" + program.string() + "</string></array>");
  }
  /// Why the job is not installed; "" if it is. Checks that the result is the same without a
  /// reason.
  [[nodiscard]] std::string whyNone() const {
    std::string reason;
    const bool isThere = installedJob(root_, "com.x", &reason) != nullptr;
    EXPECT_EQ(installedJob(root_, "com.x", nullptr) != nullptr, isThere);
    EXPECT_EQ(isThere, reason.empty()) << reason;
    return reason;
  }

  testsupport::TemporaryDirectory temporary_;
  SystemRoot root_{temporary_.path() / "root"};
};

TEST_F(InstalledJob, IsNoneWithoutARootOrAFile) {
  EXPECT_EQ(whyNone(), "there is no system root " + root_.path().string());
  fs::create_directories(root_.path());
  EXPECT_EQ(whyNone(), "there is no job file " + root_.jobFile("com.x").string());
  fs::create_directories(root_.jobFile("com.x").parent_path());
  EXPECT_EQ(whyNone(), "there is no job file " + root_.jobFile("com.x").string());
  writeFile(root_.jobFile("com.x"), "garbage");
  EXPECT_EQ(whyNone(),
            root_.jobFile("com.x").string() + ": it is not a property list with a dictionary");
}

TEST_F(InstalledJob, ThatNamesNoProgramIsOneThatCannotBeStarted) {
  for (const char* entries :
       {"", "<key>ProgramArguments</key><array/>", "<key>ProgramArguments</key><string>/p</string>",
        "<key>ProgramArguments</key><array><integer>1</integer></array>"}) {
    job(entries);
    EXPECT_EQ(whyNone(), "") << entries;
  }
}

TEST_F(InstalledJob, NamesTheHelperOfItsLabelOrNothingThatIsThere) {
  jobOf(root_.helperTool("com.x"));
  EXPECT_EQ(whyNone(), "") << "neither is there";
  writeFile(root_.helperTool("com.x"), "the helper");
  EXPECT_EQ(whyNone(), "");
  const fs::path other = temporary_.path() / "other";
  jobOf(other);
  const std::string why =
      root_.jobFile("com.x").string() + ": it names the program " + other.string() +
      ", which is not the helper that is run for it (Library/PrivilegedHelperTools/com.x of the "
      "root): install it again";
  EXPECT_EQ(whyNone(), why) << "it is not there, and the helper is";
  writeFile(other, "another");
  EXPECT_EQ(whyNone(), why) << "it is another file";
  fs::remove(root_.helperTool("com.x"));
  EXPECT_EQ(whyNone(), why) << "it is there, and the helper is not";
  fs::remove_all(root_.helperTool("com.x").parent_path());
  EXPECT_EQ(whyNone(), why);
}

TEST_F(InstalledJob, IsTheSameFileByAnyPathButNotThroughALinkInItsPlace) {
  writeFile(root_.helperTool("com.x"), "the helper");
  fs::create_directory_symlink(root_.path(), temporary_.path() / "link");
  jobOf(SystemRoot(temporary_.path() / "link").helperTool("com.x"));
  EXPECT_EQ(whyNone(), "");
  const fs::path other = temporary_.path() / "other";
  fs::rename(root_.helperTool("com.x"), other);
  fs::create_symlink(other, root_.helperTool("com.x"));
  jobOf(other);
  EXPECT_THAT(whyNone(), HasSubstr("which is not the helper that is run for it"));
}

class ServiceManagement : public InstalledJob {
 protected:
  /// The error of a removal.
  static std::shared_ptr<NSError> failure(AuthorizationRef authorization) {
    std::shared_ptr<NSError> error;
    EXPECT_FALSE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), authorization, true, &error));
    EXPECT_TRUE(error);
    return error ? error : NSError::errorWithDomain_code_userInfo(str("none"), 0, nullptr);
  }
  static std::string wordsOf(const std::shared_ptr<NSError>& error) {
    return descriptionOf(error->userInfo()->objectForKey(NSLocalizedDescriptionKey));
  }
};

TEST_F(ServiceManagement, AJobsDictionaryIsGivenOut) {
  job("");
  EXPECT_TRUE(SMJobCopyDictionary(kSMDomainSystemLaunchd, str("com.x")));
  EXPECT_FALSE(SMJobCopyDictionary(kSMDomainSystemLaunchd, str("com.y")));
  EXPECT_FALSE(SMJobCopyDictionary("other", str("com.x")));
  EXPECT_FALSE(SMJobCopyDictionary(kSMDomainSystemLaunchd, str("../x")));
  EXPECT_FALSE(SMJobCopyDictionary(kSMDomainSystemLaunchd, nullptr));
}

TEST_F(ServiceManagement, WrongArgumentsAreNamed) {
  const auto words = [](std::string_view domain, const std::shared_ptr<NSString>& label) {
    std::shared_ptr<NSError> error;
    EXPECT_FALSE(SMJobRemove(domain, label, newAuthorization(), true, &error));
    EXPECT_EQ(error->code(), 1);
    std::shared_ptr<NSError> same;
    EXPECT_FALSE(SMJobBless(domain, label, newAuthorization(), &same));
    EXPECT_EQ(wordsOf(error), wordsOf(same));
    return wordsOf(error);
  };
  EXPECT_EQ(words("other", str("com.x")), "there is no such job domain");
  EXPECT_EQ(words(kSMDomainSystemLaunchd, nullptr), "this is not a valid job label");
  EXPECT_EQ(words(kSMDomainSystemLaunchd, str("a/b")), "this is not a valid job label");
}

TEST_F(ServiceManagement, WithoutAnAuthorizationNobodyIsAsked) {
  const auto error = failure(nullptr);
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::NotPermitted));
  EXPECT_EQ(wordsOf(error), "there is no authorization for this");
  std::shared_ptr<NSError> same;
  EXPECT_FALSE(SMJobBless(kSMDomainSystemLaunchd, str("com.x"), nullptr, &same));
  EXPECT_EQ(wordsOf(same), "there is no authorization for this");
}

TEST_F(ServiceManagement, ABlessWithoutAHelperInTheBundleAsksNobody) {
  const auto authorization = newAuthorization();
  std::shared_ptr<NSError> error;
  EXPECT_FALSE(SMJobBless(kSMDomainSystemLaunchd, str("com.none"), authorization, &error));
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::FileSystem));
  EXPECT_THAT(wordsOf(error),
              testing::MatchesRegex("cannot open the bundle's helper "
                                    "/.*/Contents/Library/LaunchServices/com.none: No such file or "
                                    "directory"));
}

TEST_F(ServiceManagement, AFailureOfAnyKindIsAnError) {
  SystemRoot::resetCurrent();
  const ScopedVariable root("WLHID_ROOT", nullptr);
  const ScopedVariable state("XDG_STATE_HOME", nullptr);
  const ScopedVariable home("HOME", nullptr);
  const auto error = failure(newAuthorization());
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::DaemonUnavailable));
  EXPECT_THAT(wordsOf(error), HasSubstr("no system root: "));
}

TEST_F(ServiceManagement, WordsThatAreNoTextAreLeftOut) {
  if (!testsupport::spawnSaysWhatFailed()) GTEST_SKIP() << "posix_spawn does not say what failed";
  fs::create_directories(root_.path());
  const ScopedVariable program("WLHID_JOBD", "/nowhere/\xFF");
  const auto error = failure(newAuthorization());
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::DaemonUnavailable));
  EXPECT_EQ(wordsOf(error), "unknown");
}

}  // namespace
