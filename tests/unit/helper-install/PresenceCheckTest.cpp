// SPDX-License-Identifier: Apache-2.0

// Whether a helper is installed and current: which calls are made, in which order, and every reason
// for a no.
#include "platform/foundation/NSNumber.h"
#include "tests/unit/helper-install/ManagerFixture.h"

namespace test {
namespace {

using platform::helperImageWithInfoPlist;
using platform::NSArray;
using platform::NSDictionary;
using platform::str;

class PresenceCheck : public ManagerTest {
 protected:
  static Lines jobFound() {
    return {"SMJobCopyDictionary(kSMDomainSystemLaunchd, com.quillmar.hideventrouter) -> job",
            "mainBundle bundlePath -> /Applications/Example.app"};
  }
  static std::string read(const std::string& path, bool found = true) {
    return "dataWithContentsOfFile:" + path + " -> " + (found ? "data" : "nil");
  }
  void setJobArguments(const std::shared_ptr<platform::NSObject>& arguments) {
    platform_.setJob(kLabel,
                     NSDictionary::dictionaryWithEntries({{str("ProgramArguments"), arguments}}));
  }
};

TEST_F(PresenceCheck, NoJobReadsNoFile) {
  platform_.setJob(kLabel, nullptr);
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(sameTrace(notInstalledCheck(), taken()));
}

TEST_F(PresenceCheck, EqualVersionsSayYes) {
  EXPECT_TRUE(isInstalled());
  EXPECT_TRUE(sameTrace(installedCheck(), taken()));
}

TEST_F(PresenceCheck, OlderAndNewerVersionsSayNo) {
  for (const char* version : {"6", "8", "7.0", "7.0.1", " 7", ""}) {
    platform_.installHelper(kLabel, version);
    EXPECT_FALSE(isInstalled()) << version;
  }
}

TEST_F(PresenceCheck, NoCopyInTheBundleSaysNoAndReadsNothingElse) {
  platform_.removeFile(kBundleCopy);
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(sameTrace(sequence({jobFound(), read(kBundleCopy, false)}), taken()));
}

TEST_F(PresenceCheck, InstalledExecutableDeletedSaysNo) {
  platform_.removeFile(kInstalled);
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(
      sameTrace(sequence({jobFound(), read(kBundleCopy), read(kInstalled, false)}), taken()));
}

TEST_F(PresenceCheck, NoEmbeddedListInTheBundleCopySaysNoBeforeTheInstalledOneIsRead) {
  platform_.setFile(kBundleCopy, {'#', '!'});
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(sameTrace(sequence({jobFound(), read(kBundleCopy)}), taken()));
}

TEST_F(PresenceCheck, NoEmbeddedListInTheInstalledOneSaysNo) {
  platform_.setFile(kInstalled, {});
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(sameTrace(sequence({jobFound(), read(kBundleCopy), read(kInstalled)}), taken()));
}

TEST_F(PresenceCheck, BytesThatAreNoPropertyListSayNoAfterBothWereParsed) {
  platform_.setFile(kBundleCopy, helperImageWithInfoPlist("no property list"));
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(sameTrace(
      sequence({jobFound(), read(kBundleCopy), read(kInstalled), "propertyListWithData: -> nil",
                "propertyListWithData: -> { CFBundleVersion = 7; }"}),
      taken()));
}

TEST_F(PresenceCheck, NoVersionInEitherListSaysNo) {
  const std::string empty = "<plist version=\"1.0\"><dict/></plist>";
  platform_.setFile(kInstalled, helperImageWithInfoPlist(empty));
  EXPECT_FALSE(isInstalled());
  platform_.installHelper(kLabel, "7");
  platform_.setFile(kBundleCopy, helperImageWithInfoPlist(empty));
  EXPECT_FALSE(isInstalled());
  platform_.setFile(kInstalled, helperImageWithInfoPlist(empty));
  EXPECT_FALSE(isInstalled());
}

TEST_F(PresenceCheck, AListThatIsNoDictionarySaysNo) {
  const std::string bytes = "scripted";
  platform_.setPropertyList(bytes, NSArray::arrayWithObjects({str("7")}));
  platform_.setFile(kInstalled, helperImageWithInfoPlist(bytes));
  platform_.setFile(kBundleCopy, helperImageWithInfoPlist(bytes));
  EXPECT_FALSE(isInstalled());
}

TEST_F(PresenceCheck, VersionsAreComparedAsObjects) {
  const auto number = platform::NSNumber::numberWithLongLong(7);
  platform_.setPropertyList(
      "number", NSDictionary::dictionaryWithEntries({{str("CFBundleVersion"), number}}));
  platform_.setFile(kInstalled, helperImageWithInfoPlist("number"));
  EXPECT_FALSE(isInstalled());  // a number here, text there
  platform_.setFile(kBundleCopy, helperImageWithInfoPlist("number"));
  EXPECT_TRUE(isInstalled());
}

TEST_F(PresenceCheck, AJobWithoutAUsablePathSaysNoAndReadsNoFile) {
  for (const std::shared_ptr<platform::NSObject>& arguments :
       {std::shared_ptr<platform::NSObject>(NSArray::arrayWithObjects({})),
        std::shared_ptr<platform::NSObject>(str("/a/path/but/no/array")),
        std::shared_ptr<platform::NSObject>(
            NSArray::arrayWithObjects({platform::NSNumber::numberWithLongLong(1)}))}) {
    setJobArguments(arguments);
    EXPECT_FALSE(isInstalled());
    EXPECT_TRUE(sameTrace(jobFound(), taken()));
  }
  platform_.setJob(kLabel, NSDictionary::dictionary());
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(sameTrace(jobFound(), taken()));
}

TEST_F(PresenceCheck, OnlyTheFirstArgumentIsThePath) {
  setJobArguments(NSArray::arrayWithObjects({str(kInstalled), str("--flag")}));
  EXPECT_TRUE(isInstalled());
}

TEST_F(PresenceCheck, NoMainBundleSaysNoAndReadsNoFile) {
  platform_.setMainBundlePath(nullptr);
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(
      sameTrace({"SMJobCopyDictionary(kSMDomainSystemLaunchd, com.quillmar.hideventrouter) -> job",
                 "mainBundle bundlePath -> nil"},
                taken()));
}

TEST_F(PresenceCheck, ANullLabelSaysNo) {
  EXPECT_FALSE(KQPrivilegedHelperManager::isPriviledgedHelperInstalledWithLabel(nullptr));
}

TEST_F(PresenceCheck, NothingIsCached) {
  EXPECT_TRUE(isInstalled());
  platform_.installHelper(kLabel, "8");
  EXPECT_FALSE(isInstalled());
  platform_.setBundleCopy(kLabel, "8");
  EXPECT_TRUE(isInstalled());
}

TEST_F(PresenceCheck, TheJobDictionaryIsReleasedOnEveryPath) {
  const auto job = platform::ScriptedPlatform::helperJob(kLabel);
  platform_.setJob(kLabel, job);
  const long before = job.use_count();
  EXPECT_TRUE(isInstalled());
  platform_.removeFile(kInstalled);
  EXPECT_FALSE(isInstalled());
  EXPECT_EQ(job.use_count(), before);
}

}  // namespace
}  // namespace test
