// SPDX-License-Identifier: Apache-2.0

// wlhid log.
#include <sys/stat.h>
#include <unistd.h>

#include "Situations.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLog =
    "lost line\n"
    "Nov 21 03:12:45 host kernel[0]: something else\n"
    "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: first\n"
    "  goes on\n"
    "\n"
    "Nov 21 03:12:47 host other[1]: not com.quillmar. hideventrouter\n"
    "Nov 21 03:12:48 host launcher[2]: starts com.quillmar.hideventrouter\n";
constexpr std::string_view kExcerpt =
    "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: first\n"
    "  goes on\n"
    "\n"
    "Nov 21 03:12:48 host launcher[2]: starts com.quillmar.hideventrouter\n";

class LogTest : public SituationTest {};

TEST_F(LogTest, PrintsTheExcerptOfTheRootsLog) {
  writeFile(systemLog(), kLog);
  const Outcome outcome = runTool({"log"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, kExcerpt);
}

TEST_F(LogTest, PrintsTheExcerptOfAnyFile) {
  writeFile(directory / "other log", kLog);
  const Outcome outcome = runTool({"log", directory / "other log"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, kExcerpt);
}

TEST_F(LogTest, PrintsTheExcerptOfAFileBelowTheWorkingDirectory) {
  writeFile(directory / "old/system.log.0", kLog);
  const std::string go = "cd " + inQuotes(directory.string()) + " && exec ";
  const std::string tool = inQuotes(builtPath("wlhid").string());
  const Outcome shown = run({"sh", "-c", go + tool + " log old/system.log.0"}, options());
  EXPECT_EQ(shown.status, 0) << shown.err;
  EXPECT_EQ(shown.out, kExcerpt);
  const Outcome saved =
      run({"sh", "-c", go + tool + " log old/system.log.0 -o router.log"}, options());
  EXPECT_EQ(saved.status, 0) << saved.err;
  EXPECT_EQ(readFile(directory / "router.log"), kExcerpt);
  EXPECT_TRUE(isRefusal(run({"sh", "-c", go + tool + " log old/none"}, options()), 1,
                        (directory / "old/none").string() + ": No such file"));
}

TEST_F(LogTest, OnAFreshRootNothingHasBeenLoggedYet) {
  const std::string note = "wlhid: nothing has been logged yet on the system root " + root.string();
  for (int i = 0; i < 2; ++i) {
    const Outcome outcome = runTool({"log"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(outcome.err.starts_with(note)) << outcome.err;
    EXPECT_EQ(linesOf(outcome.err).size(), 1U);
    EXPECT_TRUE(isRefusal(runTool({"log", "-o", directory / "out.log"}), 1, "nothing has been"));
    EXPECT_FALSE(fs::exists(directory / "out.log"));
    writeFile(systemLog(), "");
  }
}

TEST_F(LogTest, ATerminalGetsNothingThatItObeysAndAFileEveryByte) {
  const std::string hostile =
      "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: \x1b[2J\x1b]0;title\a\x7f\u009b31m"
      "\u202etxt\u2066\u200b\r\n  goes \u2028 on\n";
  writeFile(systemLog(), hostile);
  const Outcome shown = runToolOnTerminal({"log"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_TRUE(isHarmless(shown.out));
  EXPECT_EQ(linesOf(shown.out).size(), 2U) << shown.out;
  EXPECT_NE(shown.out.find("\\x1b[2J"), std::string::npos) << shown.out;
  EXPECT_EQ(runTool({"log"}).out, hostile);
  ASSERT_EQ(runTool({"log", "-o", directory / "out.log"}).status, 0);
  EXPECT_EQ(readFile(directory / "out.log"), hostile);
}

TEST_F(LogTest, SavesTheExcerptWholeOrNotAtAll) {
  writeFile(systemLog(), kLog);
  const Outcome outcome = runTool({"log", "-o", directory / "out.log"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(readFile(directory / "out.log"), kExcerpt);
  EXPECT_EQ(fs::status(directory / "out.log").permissions(), fs::perms(0600));

  fs::remove(systemLog());
  EXPECT_EQ(runTool({"log", "-o", directory / "out.log"}).status, 1);
  EXPECT_EQ(readFile(directory / "out.log"), kExcerpt);
}

TEST_F(LogTest, PrintsWhatTheRouterOfThisRootHasWritten) {
  install();
  addDevice("qemu-usb-kbd.hid");
  ASSERT_EQ(runTool({"route", "QEMU QEMU USB Keyboard", "--count", "1"}).status, 0);
  const Outcome outcome = runTool({"log"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("routes device"), std::string::npos) << outcome.out;
}

TEST_F(LogTest, NothingOfTheRoutersIsNothing) {
  writeFile(systemLog(), "Nov 21 03:12:45 host kernel[0]: something else\n");
  const Outcome outcome = runTool({"log"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(LogTest, ALogThatIsNotThereIsAFailure) {
  EXPECT_TRUE(isRefusal(runTool({"log", directory / "none"}), 1, "none: "));
}

TEST_F(LogTest, ALogThatCannotBeReadIsAFailure) {
  writeFile(systemLog(), kLog);
  ASSERT_EQ(::chmod(systemLog().c_str(), 0), 0);
  ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  EXPECT_TRUE(isRefusal(runToolAsNobody({"log"}), 1, "NSCocoaErrorDomain 257"));
  EXPECT_TRUE(isRefusal(runTool({"log", directory}), 1, directory.string()));
  writeFile(directory / "latin", std::string(kLog) + "\xff\n");
  EXPECT_TRUE(isRefusal(runTool({"log", directory / "latin"}), 1, "NSCocoaErrorDomain 261"));
}

TEST_F(LogTest, AFullDiskIsAFailureAndLeavesTheOldFile) {
  std::string longLog;
  while (longLog.size() < 200'000)
    longLog += "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: first\n";
  writeFile(directory / "log", longLog);
  const std::string tool = builtPath("wlhid");
  if (canMount()) {
    const Outcome outcome = runOnFullDisk("'" + tool + "' log '" + (directory / "log").string() +
                                          "' -o '" + (directory / "disk/out").string() + "'");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "wlhid: " + (directory / "disk/out").string() + ": No space left on device\n");
    EXPECT_EQ(outcome.out, "filling\nout\nold\n");
  }
  // A limit on file sizes acts like a full disk and needs no privileges.
  fs::create_directory(directory / "bounded");
  writeFile(directory / "bounded/out", "old\n");
  EXPECT_TRUE(isRefusal(run({"prlimit", "--fsize=65536", tool, "log", directory / "log", "-o",
                             directory / "bounded/out"},
                            options()),
                        1, "out: File too large"));
  EXPECT_EQ(readFile(directory / "bounded/out"), "old\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory / "bounded"), {}), 1);
}

}  // namespace
}  // namespace test
