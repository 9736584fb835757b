// SPDX-License-Identifier: Apache-2.0

// wlhid measure and wlhid test, on recorded devices.
#include <algorithm>
#include <csignal>

#include "TerminalEmulator.h"
#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class MeasureTest : public ToolTest {
 protected:
  void SetUp() override { install(); }
};

TEST_F(MeasureTest, MeasuresADeviceThatIsUsed) {
  const std::string id = addDevice("qemu-usb-tablet.hid", {"--speed", "max"});
  const Outcome outcome = runTool({"measure", id, "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const json measured = json::parse(outcome.out);
  const Outcome recorded =
      runTool({"measure", "--recording", sourcePath("recordings/qemu-usb-tablet.hid"), "--json"});
  const json expected = json::parse(recorded.out);
  EXPECT_EQ(measured["reports"], expected["reports"]);
  EXPECT_EQ(measured["repeated"], expected["repeated"]);
  EXPECT_EQ(measured["axes"], expected["axes"]);
  EXPECT_EQ(measured["lost"], 0);
  EXPECT_GT(measured["rate"], 0);
}

TEST_F(MeasureTest, CtrlCEndsItWithTheResult) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  TerminalEmulator terminal(directory / "terminal", wlhid({"measure", id, "--seconds", "0"}),
                            options(), {120, 60});
  // It says "1 reports", too.
  terminal.await([](const std::string& shown) {
    return shown.find(" reports, ") != shown.npos && shown.find(" 0 reports, ") == shown.npos;
  });
  terminal.type("C-c");
  const std::string shown = terminal.await("ended ");
  for (const char* const expected : {"Verdict: ", "none lost", "\nIntervals: half up to ", "\n  X ",
                                     "Times are those of arrival here", "ended 0"})
    EXPECT_NE(shown.find(expected), std::string::npos) << expected << " is missing:\n" << shown;
}

TEST_F(MeasureTest, KnowsHowLongReportsTake) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  const Outcome outcome = runTool({"measure", id, "--seconds", "3", "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const json latency = json::parse(outcome.out)["latency"];
  ASSERT_TRUE(latency.is_object()) << outcome.out;
  EXPECT_GT(latency["reports"], 0);
  EXPECT_GE(latency["p50"], 0);
  EXPECT_GE(latency["p99"], latency["p50"]);
  EXPECT_GE(latency["longest"], latency["p99"]);
}

TEST_F(MeasureTest, ATestTicksOffWhatAnswers) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--speed", "max"});
  const Outcome outcome = runTool({"test", id});
  EXPECT_NE(outcome.out.find("  Button 1\n"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("  X\n"), std::string::npos) << outcome.out;
  EXPECT_TRUE(outcome.out.ends_with("All have answered.\n")) << outcome.out;
  EXPECT_EQ(outcome.status, 0) << outcome.out;
}

TEST_F(MeasureTest, OfManyThatHaveNotAnsweredSomeAreNamed) {
  const std::string id = addDevice("qemu-usb-kbd.hid", {"--speed", "max"});
  const Outcome outcome = runTool({"test", id});
  EXPECT_EQ(outcome.status, 1);
  const std::size_t list = outcome.out.find(" have not answered: ");
  ASSERT_NE(list, std::string::npos) << outcome.out;
  EXPECT_EQ(
      std::count(outcome.out.begin() + static_cast<std::ptrdiff_t>(list), outcome.out.end(), ','),
      39);
  EXPECT_TRUE(outcome.out.ends_with(" more\n")) << outcome.out;
}

TEST_F(MeasureTest, ATerminalSaysWhatToDoNext) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--speed", "max"});
  const Outcome shown = runToolOnTerminal({"test", id});
  EXPECT_NE(shown.out.find("Now press Button 1"), std::string::npos) << shown.out;
}

TEST_F(MeasureTest, WhatCannotBeMeasuredIsRefused) {
  EXPECT_TRUE(isRefusal(runTool({"measure", "nothing"}), 1, "no device is called"));
  EXPECT_TRUE(isRefusal(runTool({"test", "nothing"}), 1, "no device is called"));
  EXPECT_TRUE(isRefusal(runTool({"measure", "--recording", directory / "none"}), 1,
                        "none: cannot be read: No such"));
}

/// Recordings of real devices that are kept beside the source tree.
TEST_F(MeasureTest, MeasuresEveryRecording) {
  const fs::path shared = sourcePath("../shared/recordings");
  if (!fs::exists(shared)) GTEST_SKIP() << "no recordings beside the source tree";
  std::size_t measured = 0;
  for (const auto& entry : fs::directory_iterator(shared)) {
    if (entry.path().extension() != ".hid") continue;
    const Outcome outcome = runTool({"measure", "--recording", entry.path(), "--json"});
    ASSERT_EQ(outcome.status, 0) << entry.path() << outcome.err;
    EXPECT_GT(json::parse(outcome.out)["reports"], 0) << entry.path();
    ++measured;
  }
  EXPECT_GT(measured, 0U);
}

TEST_F(MeasureTest, TestsEveryRecording) {
  const fs::path shared = sourcePath("../shared/recordings");
  if (!fs::exists(shared)) GTEST_SKIP() << "no recordings beside the source tree";
  std::size_t tested = 0;
  for (const auto& entry : fs::directory_iterator(shared)) {
    if (entry.path().extension() != ".hid") continue;
    const Outcome added = runTool({"devices", "add", entry.path(), "--speed", "max"});
    ASSERT_EQ(added.status, 0) << added.err;
    const Outcome outcome = runTool({"test", added.out.substr(0, added.out.find_first_of(" \n"))});
    EXPECT_NE(outcome.out.find(" buttons, keys and axes\n    1/"), std::string::npos)
        << entry.path() << outcome.out << outcome.err;
    const bool all = outcome.out.ends_with("All have answered.\n");
    EXPECT_EQ(outcome.status, all ? 0 : 1) << entry.path() << outcome.err;
    ++tested;
  }
  EXPECT_GT(tested, 3U);
}

}  // namespace
}  // namespace test
