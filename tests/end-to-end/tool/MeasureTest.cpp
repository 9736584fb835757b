// SPDX-License-Identifier: Apache-2.0

// wlhid measure and wlhid test, on recorded devices.
#include <algorithm>
#include <csignal>

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
  Process routing(wlhid({"route", id, "--json"}), options());
  routing.waitForOutputContaining("report");
  Process measuring(wlhid({"measure", id, "--seconds", "1"}), options());
  measuring.waitForOutputContaining("Verdict: ");
  EXPECT_EQ(measuring.wait(), 0) << measuring.errorOutput();
  EXPECT_NE(measuring.output().find("none lost"), std::string::npos) << measuring.output();
  EXPECT_NE(measuring.output().find("Times are those of arrival here"), std::string::npos);
  routing.signal(SIGINT);
  EXPECT_EQ(routing.wait(), 0);
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
  const bool all = outcome.out.find("All have answered.\n") != std::string::npos;
  EXPECT_EQ(outcome.status, all ? 0 : 1) << outcome.out;
  EXPECT_NE(all, outcome.out.find(" have not answered: ") != std::string::npos) << outcome.out;
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

}  // namespace
}  // namespace test
