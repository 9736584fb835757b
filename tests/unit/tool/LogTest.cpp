// SPDX-License-Identifier: Apache-2.0

// wlhid log and wlhid inspect.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"
#include "platform/scripted/HelperImage.h"
#include "tests/unit/tool/VerbTest.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using testsupport::readFile;
using testsupport::writeFile;

class LogTest : public VerbTest {
 protected:
  static inline const std::string kLines =
      "Nov 21 03:12:45 host kernel[0]: something else\n"
      "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: first\n";
  static inline const std::string kExcerpt =
      "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: first\n";

  static Outcome log(std::vector<std::string> more = {}) {
    more.insert(more.begin(), "log");
    return run(addLogVerb, more);
  }
  /// A file both on disk and on the scripted platform.
  void write(const fs::path& path, const std::string& text) {
    writeFile(path, text);
    platform_.setFile(path, {text.begin(), text.end()});
  }
  [[nodiscard]] std::string nothingYet() const {
    return "nothing has been logged yet on the system root " + root_.path().string() +
           " (the log is created with a job's first line)";
  }
};

TEST_F(LogTest, SaysWhereNothingHasBeenLoggedYet) {
  const Outcome outcome = log();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "wlhid: " + nothingYet() + "\n");
  write(root_.systemLog(), "");
  EXPECT_EQ(log().err, "wlhid: " + nothingYet() + "\n");
  const fs::path out = directory_.path() / "out";
  EXPECT_TRUE(isRefusal(log({"-o", out}), 1, nothingYet()));
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(LogTest, PrintsTheExcerptOfTheRootsLog) {
  write(root_.systemLog(), kLines);
  EXPECT_EQ(log().out, kExcerpt);
  EXPECT_EQ(log().err, "");
}

TEST_F(LogTest, PrintsTheExcerptOfAnyFile) {
  write(directory_.path() / "other", kLines);
  EXPECT_EQ(log({directory_.path() / "other"}).out, kExcerpt);
}

TEST_F(LogTest, WritesAFileInsteadWhereOneIsNamed) {
  write(directory_.path() / "other", kLines);
  const fs::path out = directory_.path() / "out";
  const Outcome outcome = log({directory_.path() / "other", "-o", out});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(readFile(out), kExcerpt);
  EXPECT_EQ(fs::status(out).permissions(), fs::perms(0600));
}

TEST_F(LogTest, WhatCannotBeReadIsRefused) {
  const fs::path gone = directory_.path() / "gone";
  const Outcome outcome = log({gone});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find(gone), std::string::npos) << outcome.err;
  EXPECT_TRUE(isRefusal(log({"\xff"}), 1, "\xff: the file name is not UTF-8"));
  fs::create_directories(root_.systemLog());
  const Outcome directory = log();
  EXPECT_EQ(directory.status, 1);
  EXPECT_TRUE(directory.err.starts_with("the system log: ")) << directory.err;
}

TEST_F(LogTest, AnEmptyNameIsWrongUsage) {
  EXPECT_TRUE(isRefusal(log({""}), 2, "FILE: is empty"));
  EXPECT_TRUE(isRefusal(log({"-o", ""}), 2, "--output: is empty"));
}

// ---- inspect

TEST_F(LogTest, InspectPrintsTheEmbeddedListAsItStands) {
  const std::string list = platform::infoPlistWithVersion("1.0");
  const auto image = platform::helperImageWithInfoPlist(list);
  const fs::path path = directory_.path() / "image";
  writeFile(path, {reinterpret_cast<const char*>(image.data()), image.size()});
  const Outcome outcome = run(addInspectVerb, {"inspect", path});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, list);
  writeFile(path, "text");
  EXPECT_TRUE(isRefusal(run(addInspectVerb, {"inspect", path}), 1,
                        path.string() + ": no embedded property list (section "
                                        "__TEXT,__info_plist of a Mach-O file)"));
}

}  // namespace
}  // namespace tool
