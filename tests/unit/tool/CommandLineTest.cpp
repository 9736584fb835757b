// SPDX-License-Identifier: Apache-2.0

// The command line as a whole: global options, help and error messages.
#include "tool/command/CommandLine.h"

#include <gmock/gmock.h>

#include "VerbTest.h"

namespace tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class CommandLineTest : public VerbTest {
 protected:
  static Outcome run(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "wlhid");
    Outcome outcome;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    outcome.status = runCommandLine(static_cast<int>(arguments.size()), arguments.data());
    outcome.out = testing::internal::GetCapturedStdout();
    outcome.err = testing::internal::GetCapturedStderr();
    return outcome;
  }
  static void expectWrongUsage(const std::vector<const char*>& arguments, const char* line) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, ExitWrongUsage);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, line);
  }
};

TEST_F(CommandLineTest, AVerbsStatusIsTheCommands) {
  EXPECT_EQ(run({"status"}).status, ExitNotSo);
  installVersion("1.0");
  EXPECT_EQ(run({"status"}).status, ExitDone);
}

TEST_F(CommandLineTest, VersionAndHelpAreDone) {
  const Outcome version = run({"--version"});
  EXPECT_EQ(version.status, ExitDone);
  EXPECT_EQ(version.out, "wlhid " WLHID_VERSION "\n");
  EXPECT_EQ(version.err, "");
  const Outcome help = run({"--help"});
  EXPECT_EQ(help.status, ExitDone);
  EXPECT_THAT(help.out, StartsWith("Installs, inspects and uses the HID event router.\n"));
  EXPECT_EQ(run({"help"}).out, help.out);
}

TEST_F(CommandLineTest, EachVerbIsThereAndHasHelp) {
  for (const char* verb : {"status", "install", "uninstall", "inspect", "devices", "route", "log",
                           "report", "doctor", "help"}) {
    const Outcome help = run({"help", verb});
    EXPECT_EQ(help.status, ExitDone) << verb;
    EXPECT_THAT(help.out, HasSubstr(std::string("wlhid ") + verb));
    EXPECT_EQ(run({verb, "--help"}).out, help.out);
  }
}

TEST_F(CommandLineTest, HelpGoesIntoAVerbsVerbs) {
  const Outcome help = run({"help", "devices", "add"});
  EXPECT_THAT(help.out, HasSubstr("wlhid devices add"));
  EXPECT_EQ(run({"devices", "add", "--help"}).out, help.out);
}

TEST_F(CommandLineTest, AnUnknownVerbIsNamedWithTheNearestOne) {
  expectWrongUsage({"stauts"},
                   "wlhid: unknown verb \"stauts\"; did you mean \"status\"? (see wlhid --help)\n");
  expectWrongUsage({"fly"}, "wlhid: unknown verb \"fly\" (see wlhid --help)\n");
  expectWrongUsage({"help", "devices", "ad"},
                   "wlhid: unknown verb \"ad\"; did you mean \"add\"? (see wlhid help --help)\n");
}

TEST_F(CommandLineTest, AVerbIsRequired) {
  expectWrongUsage({}, "wlhid: a verb is required (see wlhid --help)\n");
}

TEST_F(CommandLineTest, WhatIsWrongWithAVerbPointsToItsHelp) {
  expectWrongUsage(
      {"route"},
      "wlhid: route needs either a DEVICE or --recording FILE (see wlhid route --help)\n");
  expectWrongUsage({"devices", "add"}, "wlhid: FILE is required (see wlhid devices add --help)\n");
}

TEST_F(CommandLineTest, TheRootIsTheNamedOneBeforeOrAfterTheVerb) {
  const std::string other = (directory_.path() / "other").string();
  EXPECT_THAT(run({"status", "--json", "--root", other.c_str()}).out, HasSubstr(other));
  platform::SystemRoot::setCurrent(root_);
  EXPECT_THAT(run({"--root", other.c_str(), "status", "--json"}).out, HasSubstr(other));
}

TEST_F(CommandLineTest, WithoutTheOptionTheRootStays) {
  EXPECT_THAT(run({"status", "--json"}).out, HasSubstr(root_.path().string()));
}

TEST_F(CommandLineTest, ARootWithoutANameIsWrong) {
  const Outcome outcome = run({"--root", "", "status"});
  EXPECT_EQ(outcome.status, ExitWrongUsage);
  EXPECT_THAT(outcome.err, HasSubstr("--root: is empty"));
}

TEST_F(CommandLineTest, AdviceNamesTheRootThatWasNamed) {
  const std::string other = (directory_.path() / "other").string();
  EXPECT_THAT(run({"--root", other.c_str(), "doctor"}).out,
              HasSubstr("wlhid --root " + other + " install"));
}

TEST_F(CommandLineTest, AFailureIsOneLine) {
  const Outcome outcome = run({"inspect", "/nowhere"});
  EXPECT_EQ(outcome.status, ExitNotSo);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "wlhid: /nowhere: No such file or directory\n");
}

}  // namespace
}  // namespace tool
