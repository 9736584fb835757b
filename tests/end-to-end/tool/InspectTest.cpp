// SPDX-License-Identifier: Apache-2.0

// wlhid inspect, on good and on hostile files.
#include <sys/stat.h>

#include <fstream>

#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class InspectTest : public ToolTest {
 protected:
  [[nodiscard]] Outcome inspect(const fs::path& file) const { return runTool({"inspect", file}); }
  [[nodiscard]] fs::path file(std::string_view name, std::string_view content) const {
    writeFile(directory / name, content);
    return directory / name;
  }
  static fs::path routerImage() {
    return builtPath("Contents/Library/LaunchServices/com.quillmar.hideventrouter");
  }
};

TEST_F(InspectTest, PrintsTheListAsItStandsInTheFile) {
  const Outcome outcome = inspect(routerImage());
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_NE(outcome.out.find("<key>CFBundleVersion</key>"), std::string::npos) << outcome.out;
  EXPECT_NE(readFile(routerImage()).find(outcome.out), std::string::npos)
      << "not the file's own bytes";
}

TEST_F(InspectTest, ATerminalGetsNothingThatItObeys) {
  std::string image = readFile(routerImage());
  const std::size_t at = image.find("<plist");
  ASSERT_NE(at, std::string::npos);
  image.replace(at, 6, "\x1b[2J\x7f\r");
  const fs::path hostile = file("hostile", image);
  const Outcome shown = runToolOnTerminal({"inspect", hostile});
  EXPECT_EQ(shown.status, 0) << shown.out;
  EXPECT_TRUE(isHarmless(shown.out));
  EXPECT_NE(shown.out.find("\\x1b[2J\\x7f\\x0d"), std::string::npos) << shown.out;
  EXPECT_NE(inspect(hostile).out.find("\x1b[2J\x7f\r"), std::string::npos) << "not byte for byte";
}

TEST_F(InspectTest, NeedsNoRoot) {
  EXPECT_EQ(inspect(routerImage()).status, 0);
  EXPECT_FALSE(fs::exists(root));
}

TEST_F(InspectTest, AFileWithoutAListIsRefused) {
  const char* reason = "no embedded property list";
  EXPECT_TRUE(isRefusal(inspect(file("empty", "")), 1, reason));
  EXPECT_TRUE(isRefusal(inspect(file("text", "only text\n")), 1, reason));
  EXPECT_TRUE(isRefusal(inspect(file("short", "\xcf\xfa\xed")), 1, reason));
  EXPECT_TRUE(isRefusal(inspect(builtPath("wlhid")), 1, reason));
}

TEST_F(InspectTest, ATruncatedExecutableGivesItsListWholeOrNot) {
  const std::string whole = readFile(routerImage());
  const std::string list = inspect(routerImage()).out;
  const std::size_t end = whole.find(list) + list.size();
  for (std::size_t length = 0; length < end; length += 97) {
    EXPECT_TRUE(
        isRefusal(inspect(file("cut", whole.substr(0, length))), 1, "no embedded property list"))
        << length;
  }
  EXPECT_TRUE(
      isRefusal(inspect(file("cut", whole.substr(0, end - 1))), 1, "no embedded property list"));
  EXPECT_EQ(inspect(file("cut", whole.substr(0, end))).out, list);
}

TEST_F(InspectTest, AnythingButAReadableFileIsRefusedWithTheReason) {
  EXPECT_TRUE(isRefusal(inspect(directory / "missing"), 1, "missing: No such file or directory"));
  EXPECT_TRUE(isRefusal(inspect(directory), 1, "Is a directory"));
  EXPECT_TRUE(isRefusal(inspect("/dev/zero"), 1, "not a regular file"));
  EXPECT_TRUE(isRefusal(inspect(file("plain", "x") / "below"), 1, "Not a directory"));
}

TEST_F(InspectTest, APipeDoesNotMakeItWait) {
  const fs::path pipe = directory / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_TRUE(isRefusal(inspect(pipe), 1, "not a regular file"));
}

TEST_F(InspectTest, AHugeFileIsRefusedBeforeItIsRead) {
  const fs::path huge = file("huge", "x");
  fs::resize_file(huge, std::uintmax_t{1} << 40);
  EXPECT_TRUE(isRefusal(inspect(huge), 1, "larger than 256 MiB"));
}

TEST_F(InspectTest, AFileThatMayNotBeReadIsRefused) {
  const fs::path secret = file("secret", "x");
  ASSERT_EQ(::chmod(secret.c_str(), 0), 0);
  std::vector<std::string> command = wlhid({"inspect", secret});
  if (::geteuid() == 0) {  // root may read everything: run as another user
    ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
    command.insert(command.begin(),
                   {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  }
  EXPECT_TRUE(isRefusal(run(command, options()), 1, "Permission denied"));
}

}  // namespace
}  // namespace test
