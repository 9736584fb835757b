// SPDX-License-Identifier: Apache-2.0

// wlhid status, install and uninstall.
#include <sys/stat.h>

#include <csignal>

#include "Situations.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class InstallTest : public SituationTest {
 protected:
  [[nodiscard]] nlohmann::json status() const {
    return nlohmann::json::parse(runTool({"status", "--json"}).out);
  }
  [[nodiscard]] fs::path jobFile() const {
    return root / "Library/LaunchDaemons/com.quillmar.hideventrouter.plist";
  }
};

TEST_F(InstallTest, ANewRootHasNoRouter) {
  const Outcome outcome = runTool({"status"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "");
  EXPECT_NE(outcome.out.find("not installed"), std::string::npos) << outcome.out;
  const auto json = status();
  EXPECT_EQ(json["installed"], false);
  EXPECT_EQ(json["bundleCopy"]["version"], WLHID_VERSION);
  EXPECT_EQ(json["installedCopy"], nullptr);
  EXPECT_EQ(json["router"], nullptr);
}

TEST_F(InstallTest, AskingChangesNothing) {
  static_cast<void>(runTool({"status"}));
  static_cast<void>(runTool({"devices"}));
  EXPECT_FALSE(fs::exists(root));
}

TEST_F(InstallTest, InstallsAndRemoves) {
  install();
  EXPECT_EQ(readFile(helperTool()),
            readFile(builtPath("Contents/Library/LaunchServices/com.quillmar.hideventrouter")));
  EXPECT_TRUE(fs::exists(jobFile()));
  const Outcome installed = runTool({"status"});
  EXPECT_EQ(installed.status, 0) << installed.out << installed.err;
  const auto json = status();
  EXPECT_EQ(json["installed"], true);
  EXPECT_EQ(json["installedCopy"]["version"], WLHID_VERSION);
  EXPECT_EQ(json["installedCopy"]["path"], helperTool().string());

  const Outcome removed = runTool({"uninstall", "--authorize", "allow"});
  EXPECT_EQ(removed.status, 0) << removed.err;
  EXPECT_FALSE(fs::exists(helperTool()));
  EXPECT_FALSE(fs::exists(jobFile()));
  EXPECT_EQ(runTool({"status"}).status, 1);
}

TEST_F(InstallTest, TheJobDaemonEndsByItselfOnceItHasNothingToKeep) {
  install();
  EXPECT_EQ(jobDaemons().size(), 1U);
  ASSERT_EQ(runTool({"uninstall", "--authorize", "allow"}).status, 0);
  expectNoProcessLeft();
}

TEST_F(InstallTest, InstallingTwiceIsFine) {
  install();
  install();
  EXPECT_EQ(runTool({"status"}).status, 0);
}

TEST_F(InstallTest, WithoutAuthorizationNothingIsInstalled) {
  EXPECT_TRUE(isRefusal(runTool({"install", "--authorize", "deny"}), 1,
                        "authorization denied (NSOSStatusErrorDomain -60005)"));
  EXPECT_TRUE(isRefusal(runTool({"install", "--authorize", "cancel"}), 1,
                        "authorization canceled (NSOSStatusErrorDomain -60006)"));
  EXPECT_EQ(runTool({"status"}).status, 1);
}

TEST_F(InstallTest, WithoutATerminalTheQuestionCannotBeAsked) {
  EXPECT_TRUE(isRefusal(runTool({"install"}), 1, "NSOSStatusErrorDomain -60007"));
}

TEST_F(InstallTest, WithoutAuthorizationNothingIsRemoved) {
  install();
  EXPECT_TRUE(isRefusal(runTool({"uninstall", "--authorize", "deny"}), 1, "authorization denied"));
  EXPECT_EQ(runTool({"status"}).status, 0);
}

TEST_F(InstallTest, RemovingWhatIsNotThereSaysSo) {
  EXPECT_TRUE(isRefusal(runTool({"uninstall", "--authorize", "allow"}), 1, "it is not installed"));
}

TEST_F(InstallTest, RemovingAsksNothingWhereNothingWouldBeRemoved) {
  EXPECT_TRUE(isRefusal(runTool({"uninstall"}), 1, "it is not installed"));
  install();
  becomeVersion("0.9");
  EXPECT_TRUE(isRefusal(runTool({"uninstall"}), 1, "the installed version is 0.9"));
  fs::remove(helperTool());
  EXPECT_TRUE(isRefusal(runTool({"uninstall"}), 1, "No such file or directory"));
}

TEST_F(InstallTest, ANewerRouterIsReplacedByForceOnly) {
  install();
  becomeVersion("2.0");
  const Outcome refused = runTool({"install", "--authorize", "allow"});
  EXPECT_TRUE(isRefusal(
      refused, 1,
      "version 2.0 is installed, and this command carries the older version " WLHID_VERSION));
  EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
  EXPECT_EQ(status()["installedCopy"]["version"], "2.0");
  EXPECT_NE(runTool({"status"}).out.find("install --force"), std::string::npos);

  const Outcome forced = runTool({"install", "--force", "--authorize", "allow"});
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_TRUE(
      forced.out.starts_with("Replacing: version 2.0 is installed, and this command carries the "
                             "older version " WLHID_VERSION))
      << forced.out;
  EXPECT_EQ(status()["installedCopy"]["version"], WLHID_VERSION);
}

TEST_F(InstallTest, AnExecutableOutsideTheRootIsNamedAsSuch) {
  install();
  std::string job = readFile(jobFile());
  const std::string inside = helperTool().string();
  const std::size_t at = job.find(inside);
  ASSERT_NE(at, std::string::npos);
  job.replace(at, inside.size(), (directory / "elsewhere").string());
  writeFile(jobFile(), job);
  const std::string outside = "it names the program " + (directory / "elsewhere").string() +
                              ", which is not the helper that is run for it";
  EXPECT_NE(runTool({"status"}).out.find(outside), std::string::npos) << runTool({"status"}).out;
  EXPECT_NE(runTool({"doctor"}).out.find(outside), std::string::npos) << runTool({"doctor"}).out;
  EXPECT_EQ(runTool({"doctor"}).out.find("No such file"), std::string::npos);
  install();
  EXPECT_EQ(runTool({"doctor"}).status, 0);
}

TEST_F(InstallTest, ARouterOfAnotherVersionIsNotCurrent) {
  install();
  becomeVersion("0.9");
  const Outcome outcome = runTool({"status"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.out.find("0.9"), std::string::npos) << outcome.out;
  EXPECT_TRUE(isRefusal(runTool({"route", "1"}), 1, root.string() + " install"));
  EXPECT_TRUE(
      isRefusal(runTool({"uninstall", "--authorize", "allow"}), 1, "the installed version is 0.9"));

  install();
  EXPECT_EQ(runTool({"status"}).status, 0);
}

TEST_F(InstallTest, ADamagedJobFileCountsAsNotInstalledAndCanBeReplaced) {
  install();
  writeFile(jobFile(), "no property list");
  EXPECT_EQ(runTool({"status"}).status, 1);
  install();
  EXPECT_EQ(runTool({"status"}).status, 0);
}

TEST_F(InstallTest, ARootThatCannotBeMadeIsRefusedWithTheReason) {
  writeFile(directory / "file", "x");
  root = directory / "file" / "root";
  EXPECT_TRUE(isRefusal(runTool({"install", "--authorize", "allow"}), 1, "not installed: "));
  EXPECT_EQ(runTool({"status"}).status, 1);
}

TEST_F(InstallTest, ARootWithoutRightsIsRefusedWithTheReason) {
  fs::create_directory(root);
  ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(root.c_str(), 0555), 0);
  std::vector<std::string> command = wlhid({"install", "--authorize", "allow"});
  if (::geteuid() == 0)
    command.insert(command.begin(),
                   {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  EXPECT_TRUE(isRefusal(run(command, options()), 1, "not installed: "));
}

TEST_F(InstallTest, OnTheSystemsOwnRootTheCommandLineDoesNotAnswer) {
  EXPECT_TRUE(isRefusal(
      run({builtPath("wlhid"), "--root", "/", "install", "--authorize", "allow"}, options()), 2,
      "--authorize"));
}

}  // namespace
}  // namespace test
