// SPDX-License-Identifier: Apache-2.0

// Foreign text on its way to a terminal: names, labels, versions and errors with escape sequences,
// control characters beyond ASCII, bidirectional controls and line ends.
#include <csignal>

#include "Situations.h"

namespace test {
namespace {

namespace fs = std::filesystem;

const std::string kHostile = "\x1b[2J\x1b]0;t\a\x7f\u009b31m\u202e\u2066\u200b\r\nok    forged";

/// A possible device name; ASCII control characters are rejected earlier.
const std::string kHostileName = "\u009b31m\u202e\u2066\u200b";

class HostileTextTest : public SituationTest {
 protected:
  std::string addHostileDevice() {
    return addDevice("qemu-usb-mouse.hid", {"--repeat", "--name", kHostileName});
  }
  /// Runs the verb with and without --json and checks everything that it prints.
  void expectHarmless(const std::vector<std::string>& arguments) const {
    const Outcome outcome = runTool(arguments);
    EXPECT_TRUE(isHarmless(outcome.out));
    EXPECT_TRUE(isHarmless(outcome.err));
    for (const std::string& line : linesOf(outcome.out + outcome.err))
      EXPECT_FALSE(line.starts_with("ok    forged")) << outcome.out << outcome.err;
  }
};

TEST_F(HostileTextTest, InTheNamesOfDevices) {
  install();
  const std::string id = addHostileDevice();
  expectHarmless({"devices"});
  expectHarmless({"devices", "--json"});
  expectHarmless({"route", id, "--count", "1"});

  Process routing(wlhid({"route", id, "--json"}), options());
  routing.waitForOutputContaining("report");
  expectHarmless({"status"});
  expectHarmless({"status", "--json"});
  expectHarmless({"doctor"});
  routing.signal(SIGINT);
  EXPECT_EQ(routing.wait(), 0);
  EXPECT_TRUE(isHarmless(runToolOnTerminal({"log"}).out));
}

TEST_F(HostileTextTest, InVersions) {
  install();
  for (const std::string version : {"\u202e", "\u2066"}) {
    becomeVersion(version);
    for (const char* verb : {"status", "doctor", "uninstall"}) {
      expectHarmless({verb});
      if (std::string(verb) != "uninstall") expectHarmless({verb, "--json"});
    }
    install();
  }
}

TEST_F(HostileTextTest, InLabelsServicesAndFileNames) {
  install();
  const fs::path jobFile = root / "Library/LaunchDaemons/com.quillmar.hideventrouter.plist";
  std::string job = readFile(jobFile);
  const std::size_t services = job.find("<key>com.quillmar", job.find("MachServices"));
  ASSERT_NE(services, std::string::npos) << job;
  job.insert(services + 5, "\u202e\u009b");
  writeFile(jobFile, job);
  writeFile(root / "etc/hideventrouter" / (kHostile + ".plist"), "no list");
  for (const char* verb : {"doctor", "status", "devices"}) {
    expectHarmless({verb});
    expectHarmless({verb, "--json"});
  }
}

TEST_F(HostileTextTest, InErrors) {
  expectHarmless({"inspect", kHostile});
  expectHarmless({"log", kHostile});
  expectHarmless({"route", kHostile});
  expectHarmless({kHostile});
  expectHarmless({"help", kHostile});
  expectHarmless({"route", "1", "--tag", kHostile});
  expectHarmless({"report", kHostile + "/none"});
  root = directory / kHostile;
  for (const char* verb : {"doctor", "status", "log", "route"}) expectHarmless({verb});
}

}  // namespace
}  // namespace test
