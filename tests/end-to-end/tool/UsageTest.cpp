// SPDX-License-Identifier: Apache-2.0

// The command line itself: help, versions and usage errors.
#include "ToolTest.h"

namespace test {
namespace {

const std::vector<std::vector<std::string>> kVerbs{{"status"},
                                                   {"install"},
                                                   {"uninstall"},
                                                   {"inspect"},
                                                   {"devices"},
                                                   {"devices", "add"},
                                                   {"devices", "remove"},
                                                   {"route"},
                                                   {"record"},
                                                   {"measure"},
                                                   {"monitor"},
                                                   {"test"},
                                                   {"picture"},
                                                   {"descriptor"},
                                                   {"log"},
                                                   {"report"},
                                                   {"doctor"},
                                                   {"help"}};

class UsageTest : public ToolTest {};

TEST_F(UsageTest, HelpNamesEveryVerb) {
  const Outcome outcome = runTool({"--help"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  for (const char* verb : {"status", "install", "uninstall", "inspect", "devices", "route", "log",
                           "report", "doctor", "--root", "--version"}) {
    EXPECT_NE(outcome.out.find(verb), std::string::npos) << verb;
  }
}

TEST_F(UsageTest, EveryVerbHasHelpWithAnExample) {
  for (std::vector<std::string> verb : kVerbs) {
    verb.emplace_back("--help");
    const Outcome outcome = runTool(verb);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("Example"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("wlhid " + verb[0]), std::string::npos) << outcome.out;
  }
}

TEST_F(UsageTest, PrintsItsVersion) {
  const Outcome outcome = runTool({"--version"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "wlhid " WLHID_VERSION "\n");
}

TEST_F(UsageTest, WrongUsageIsOneLineAndExitStatus2) {
  const std::string recording = sourcePath("recordings/qemu-usb-kbd.hid");
  EXPECT_TRUE(isRefusal(runTool({}), 2, "a verb is required"));
  EXPECT_TRUE(isRefusal(runTool({"fly"}), 2, "unknown verb \"fly\""));
  EXPECT_TRUE(isRefusal(runTool({"status", "--fast"}), 2, "--fast"));
  EXPECT_TRUE(isRefusal(runTool({"status", "more"}), 2, "more"));
  EXPECT_TRUE(isRefusal(runTool({"inspect"}), 2, "EXECUTABLE"));
  EXPECT_TRUE(isRefusal(runTool({"install", "--authorize", "perhaps"}), 2, "perhaps"));
  EXPECT_TRUE(isRefusal(runTool({"devices", "add"}), 2, "FILE"));
  EXPECT_TRUE(isRefusal(runTool({"devices", "add", recording, "--speed", "fast"}), 2, "fast"));
  EXPECT_TRUE(isRefusal(runTool({"route"}), 2, "DEVICE"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--recording", recording}), 2, "DEVICE"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--speed", "max"}), 2, "--recording"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--count", "-3"}), 2, "--count"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--count", "99999999999999999999"}), 2, "--count"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--seconds", "nan"}), 2, "--seconds"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--seconds", "-1"}), 2, "--seconds"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--mode", "x"}), 2, "--mode"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--tag", "1"}), 2, "PAGE:USAGE"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--tag", "1:"}), 2, "PAGE:USAGE"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--tag", "0x10000:1"}), 2, "PAGE:USAGE"));
  EXPECT_TRUE(isRefusal(runTool({"route", "1", "--tag", "1:-2"}), 2, "PAGE:USAGE"));
  EXPECT_TRUE(isRefusal(run({builtPath("wlhid"), "--root", "", "status"}, options()), 2, "--root"));
}

TEST_F(UsageTest, WrongUsagePointsToTheHelpOfItsVerb) {
  EXPECT_NE(runTool({"route"}).err.find("(see wlhid route --help)"), std::string::npos);
  EXPECT_NE(runTool({"devices", "add"}).err.find("(see wlhid devices add --help)"),
            std::string::npos);
  EXPECT_NE(runTool({}).err.find("(see wlhid --help)"), std::string::npos);
}

TEST_F(UsageTest, HelpOfAVerbIsThatOfTheOption) {
  EXPECT_EQ(runTool({"help"}).out, runTool({"--help"}).out);
  for (const std::vector<std::string>& verb : kVerbs) {
    std::vector<std::string> before{"help"};
    std::vector<std::string> after(verb);
    before.insert(before.end(), verb.begin(), verb.end());
    after.emplace_back("--help");
    const Outcome outcome = runTool(before);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, runTool(after).out);
  }
}

TEST_F(UsageTest, AMistypedVerbGetsASuggestion) {
  EXPECT_TRUE(
      isRefusal(runTool({"stauts"}), 2, "unknown verb \"stauts\"; did you mean \"status\"?"));
  EXPECT_TRUE(isRefusal(runTool({"help", "devcies"}), 2, "did you mean \"devices\"?"));
  EXPECT_TRUE(isRefusal(runTool({"help", "devices", "ad"}), 2, "did you mean \"add\"?"));
  EXPECT_TRUE(isRefusal(runTool({"fly"}), 2, "unknown verb \"fly\" (see"));
}

TEST_F(UsageTest, NoCountAndNoTimeMeanWithoutEnd) {
  for (const char* option : {"--count", "--seconds"}) {
    EXPECT_TRUE(isRefusal(runTool({"route", "1", option, "0"}), 1, "not installed")) << option;
    const std::string help = runTool({"route", "--help"}).out;
    EXPECT_NE(help.find("(0, the default: never)", help.find(option)), std::string::npos) << help;
  }
}

TEST_F(UsageTest, TheRootMayFollowTheVerb) {
  const Outcome outcome = run({builtPath("wlhid"), "status", "--json", "--root", root}, options());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(nlohmann::json::parse(outcome.out)["root"], root.string());
}

TEST_F(UsageTest, TheRootComesFromTheEnvironmentWhereNoOptionNamesIt) {
  ProcessOptions withRoot = options();
  withRoot.environment.emplace_back("WLHID_ROOT", root);
  std::erase_if(withRoot.environment, [](const auto& entry) {
    return entry.first == "WLHID_ROOT" && entry.second.empty();
  });
  const Outcome outcome = run({builtPath("wlhid"), "status", "--json"}, withRoot);
  EXPECT_EQ(nlohmann::json::parse(outcome.out)["root"], root.string());
}

TEST_F(UsageTest, AFullDiskIsAFailure) {
  ProcessOptions full = options();
  full.standardOutput = "/dev/full";
  const Outcome outcome = run(wlhid({"--help"}), full);
  EXPECT_TRUE(isRefusal(outcome, 1, "No space left on device"));
}

TEST_F(UsageTest, AnArgumentWithControlCharactersStaysOnTheLine) {
  const Outcome outcome = runTool({"inspect", "/no/such\nfile\x1b[31m"});
  EXPECT_TRUE(isRefusal(outcome, 1, "/no/such\\x0afile\\x1b[31m: No such file or directory"));
}

}  // namespace
}  // namespace test
