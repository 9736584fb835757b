// SPDX-License-Identifier: Apache-2.0

// wlhid-mkimage, as somebody who writes a router uses it.
#include <gmock/gmock.h>

#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class MakeImageTest : public ToolTest {
 protected:
  [[nodiscard]] Outcome make(const std::vector<std::string>& more) const {
    std::vector<std::string> command{WLHID_MKIMAGE};
    command.insert(command.end(), more.begin(), more.end());
    return run(command, options());
  }
  /// Refused as wrong usage, with no image written.
  void expectRefusal(const std::vector<std::string>& more, const std::string& why) const {
    const Outcome outcome = make(more);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "wlhid-mkimage: " + why + " (see --help)\n");
    EXPECT_FALSE(fs::exists(image()));
  }
  [[nodiscard]] fs::path image() const { return directory / "made/image"; }
};

TEST_F(MakeImageTest, MakesWhatInspectShows) {
  const Outcome made = make({"--label", "org.example.a", "--version", "2.0 & <3>", "--service",
                             "org.example.b", "--program", "/bin/true", "--output", image()});
  EXPECT_EQ(made.status, 0) << made.err;
  const Outcome seen = runTool({"inspect", image()});
  EXPECT_EQ(seen.status, 0) << seen.err;
  EXPECT_THAT(seen.out, HasSubstr("<string>org.example.a</string>"));
  EXPECT_THAT(seen.out, HasSubstr("<string>2.0 &amp; &lt;3&gt;</string>"));
  EXPECT_THAT(readFile(image()), HasSubstr("<key>org.example.b</key>"));
}

TEST_F(MakeImageTest, RefusesWhatItCannotPack) {
  const std::vector<std::string> all{"--label",   "l",         "--version", "1",
                                     "--program", "/bin/true", "--output",  image()};
  expectRefusal({}, "--label needs a value");
  expectRefusal({"--label"}, "--label needs a value");
  expectRefusal({"--colour", "red"}, "there is no option --colour");
  auto more = all;
  more.insert(more.end(), {"--service", "a\nb"});
  expectRefusal(more, "the value of --service has a control character");
  more = all;
  more.back() = "";
  expectRefusal(more, "--output needs a value");
}

TEST_F(MakeImageTest, RefusesFilesThatAreNotPrograms) {
  writeFile(directory / "script", "#!/bin/sh\n");
  for (const fs::path& program : {directory / "script", directory / "missing"}) {
    const Outcome outcome =
        make({"--label", "l", "--version", "1", "--program", program, "--output", image()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(program.string()));
    EXPECT_FALSE(fs::exists(image()));
  }
}

TEST_F(MakeImageTest, ExplainsItself) {
  const Outcome help = make({"--help"});
  EXPECT_EQ(help.status, 0);
  const std::string page = readFile(sourcePath("packaging/mkimage/wlhid-mkimage.1"));
  for (const std::string option : {"label", "version", "service", "program", "output"}) {
    EXPECT_THAT(help.out, HasSubstr("--" + option + " "));
    EXPECT_THAT(page, HasSubstr("\\-\\-" + option)) << "the manual page";
  }
}

}  // namespace
}  // namespace test
