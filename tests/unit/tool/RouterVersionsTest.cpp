// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/RouterVersions.h"

#include <gtest/gtest.h>

#include "platform/foundation/NSArray.h"
#include "platform/scripted/HelperImage.h"
#include "tests/unit/tool/VerbTest.h"

namespace tool {
namespace {

TEST(RouterVersions, AnInstallForcesADowngradeOnly) {
  RouterVersions versions;
  versions.bundle.version = "1.0";
  EXPECT_EQ(installArguments(versions), (std::vector<std::string>{"install"}));
  versions.installed.emplace();
  versions.installed->version = "0.9";
  EXPECT_EQ(installArguments(versions), (std::vector<std::string>{"install"}));
  versions.installed->version = "2.0";
  EXPECT_EQ(installArguments(versions), (std::vector<std::string>{"install", "--force"}));
}

// ---- Reading them

class ReadRouterVersions : public VerbTest {
 protected:
  static std::string shown(const RouterCopy& copy) {
    return copy.path + "|" + copy.version + "|" + std::to_string(static_cast<int>(copy.state)) +
           "|" + copy.problem + (copy.versionValue ? "|value" : "|none");
  }
  static std::string stateNumber(CopyState state) {
    return std::to_string(static_cast<int>(state));
  }
  void setInstalledList(const std::string& list) {
    platform_.setFile(kInstalledCopy, platform::helperImageWithInfoPlist(list));
  }
  void setProgram(const std::string& path) {
    platform_.setJob(kLabel, platform::NSDictionary::dictionaryWithEntries(
                                 {{platform::str("ProgramArguments"),
                                   platform::NSArray::arrayWithObjects({platform::str(path)})}}));
  }
  static std::string installed() { return shown(*readRouterVersions().installed); }
};

TEST_F(ReadRouterVersions, AreThoseOfBothCopies) {
  installVersion("0.9");
  const RouterVersions read = readRouterVersions();
  const std::string complete = "|" + stateNumber(CopyState::Complete) + "||value";
  EXPECT_EQ(shown(read.bundle), kBundleCopy + "|1.0" + complete);
  ASSERT_TRUE(read.installed);
  EXPECT_EQ(shown(*read.installed), kInstalledCopy + "|0.9" + complete);
  EXPECT_EQ(read.jobProblem, "");
  EXPECT_TRUE(read.services.empty());
}

TEST_F(ReadRouterVersions, SayHowFarTheReadingCame) {
  installVersion("1.0");
  setInstalledList("<plist version=\"1.0\"><dict><key>A</key><string>B</string></dict></plist>");
  EXPECT_EQ(installed(), kInstalledCopy + "||" + stateNumber(CopyState::NoVersion) + "|" +
                             kInstalledCopy + ": its embedded property list has no version|none");
  setInstalledList("<plist version=\"1.0\"><array/></plist>");
  EXPECT_TRUE(installed().ends_with("has no version|none"));
  setInstalledList("no list");
  EXPECT_EQ(installed(), kInstalledCopy + "||" + stateNumber(CopyState::BadList) + "|" +
                             kInstalledCopy + ": its embedded property list is damaged|none");
  platform_.setFile(kInstalledCopy, {1, 2, 3});
  EXPECT_EQ(installed(), kInstalledCopy + "||" + stateNumber(CopyState::NoEmbeddedList) + "|" +
                             kInstalledCopy + ": has no embedded property list|none");
  const std::string gone = directory_.path() / "gone";
  setProgram(gone);
  EXPECT_EQ(installed(), gone + "||" + stateNumber(CopyState::Unreadable) + "|" + gone +
                             ": No such file or directory|none");
  testsupport::writeFile(gone, "there, but not for the framework");
  EXPECT_EQ(installed(), gone + "||" + stateNumber(CopyState::Unreadable) + "|" + gone +
                             ": cannot be read|none");
}

TEST_F(ReadRouterVersions, AJobNeedNameNoProgram) {
  const std::string none =
      "||" + stateNumber(CopyState::NoPath) + "|the job names no executable|none";
  platform_.setJob(kLabel, platform::NSDictionary::dictionaryWithEntries({}));
  EXPECT_EQ(installed(), none);
  for (const auto& arguments :
       {platform::NSArray::arrayWithObjects({}),
        platform::NSArray::arrayWithObjects({platform::NSArray::arrayWithObjects({})})}) {
    platform_.setJob(kLabel, platform::NSDictionary::dictionaryWithEntries(
                                 {{platform::str("ProgramArguments"), arguments}}));
    EXPECT_EQ(installed(), none);
  }
}

TEST_F(ReadRouterVersions, AJobNamesItsServices) {
  platform_.setJob(
      kLabel,
      platform::NSDictionary::dictionaryWithEntries(
          {{platform::str("MachServices"), platform::NSDictionary::dictionaryWithEntries(
                                               {{platform::str("a.b"), platform::str("x")}})}}));
  EXPECT_EQ(readRouterVersions().services, std::vector<std::string>{"a.b"});
}

TEST_F(ReadRouterVersions, WithoutAJobOrAPlaceSayWhy) {
  platform_.setMainBundlePath(nullptr);
  const RouterVersions read = readRouterVersions();
  EXPECT_EQ(shown(read.bundle), "||" + stateNumber(CopyState::NoPath) +
                                    "|the location of this program is unknown|none");
  EXPECT_FALSE(read.installed);
  EXPECT_EQ(read.jobProblem, "there is no system root " + root_.path().string());
  testsupport::writeFile(root_.path(), "no directory");
  EXPECT_NE(readRouterVersions().jobProblem.find("is not a directory"), std::string::npos);
}

}  // namespace
}  // namespace tool
