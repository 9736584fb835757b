// SPDX-License-Identifier: Apache-2.0

// wlhid descriptor, as a person uses it.
#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class DescriptorTest : public ToolTest {};

TEST_F(DescriptorTest, ExplainsARecordingAndTheDeviceThatPlaysIt) {
  const std::string recording = sourcePath("recordings/qemu-usb-tablet.hid");
  const Outcome ofFile = runTool({"descriptor", recording});
  EXPECT_EQ(ofFile.status, 0) << ofFile.err;
  EXPECT_NE(ofFile.out.find("  Input: X, Y; 2 × 16 bits from bit 8; 0 to 32767"), std::string::npos)
      << ofFile.out;
  EXPECT_NE(ofFile.out.find("Class: sensitive (a mouse: collection Mouse (01:02))"),
            std::string::npos)
      << ofFile.out;
  const Outcome ofDevice = runTool({"descriptor", addDevice("qemu-usb-tablet.hid")});
  EXPECT_EQ(ofDevice.out, ofFile.out);
}

TEST_F(DescriptorTest, ReadsStandardInput) {
  const std::string line = "echo 'a1 01 c0' | " + builtPath("wlhid").string() + " descriptor -";
  const Outcome outcome = run({"sh", "-c", line}, options());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(outcome.out.starts_with("standard input: 3 bytes")) << outcome.out;
}

TEST_F(DescriptorTest, HostileNamesStayHarmless) {
  writeFile(directory / "r.hid", "R: 3 a1 01 c0\nN: \x1b[2Jbad\u202e\nI: 3 1 2\n");
  const Outcome shown = runToolOnTerminal({"descriptor", directory / "r.hid"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_TRUE(isHarmless(shown.out));
  EXPECT_TRUE(isHarmless(runTool({"descriptor", directory / "r.hid", "--json"}).out));
  writeFile(directory / "text", "05 01 \x1b[2J");
  EXPECT_TRUE(isHarmless(runTool({"descriptor", directory / "text"}).err));
}

TEST_F(DescriptorTest, WhatIsNeitherFileNorDeviceIsRefused) {
  EXPECT_TRUE(isRefusal(runTool({"descriptor", "nothing"}), 1, "no device is called \"nothing\""));
  EXPECT_TRUE(isRefusal(runTool({"descriptor", directory}), 1, "not a regular file"));
  EXPECT_TRUE(isRefusal(runTool({"descriptor"}), 2, "FILE|DEVICE"));
}

/// Real descriptors that are kept beside the source tree.
TEST_F(DescriptorTest, ExplainsEveryRealDevice) {
  const fs::path shared = sourcePath("../shared/recordings");
  if (!fs::exists(shared)) GTEST_SKIP() << "no recordings beside the source tree";
  std::size_t explained = 0;
  for (const auto& entry : fs::directory_iterator(shared)) {
    if (entry.path().extension() != ".hid") continue;
    const Outcome outcome = runTool({"descriptor", entry.path(), "--json"});
    ASSERT_EQ(outcome.status, 0) << entry.path() << outcome.err;
    const auto document = nlohmann::json::parse(outcome.out);
    EXPECT_GT(document["elements"], 0) << entry.path();
    EXPECT_FALSE(document["items"].empty()) << entry.path();
    ++explained;
  }
  EXPECT_GT(explained, 0U);
}

}  // namespace
}  // namespace test
