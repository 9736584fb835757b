// SPDX-License-Identifier: Apache-2.0

// What a recording consists of, and the file that it is written to.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "router/Recording.h"
#include "router/RouterErrors.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/tool/FakeRouter.h"
#include "tests/unit/tool/VerbTest.h"
#include "tool/files/GrowingFile.h"
#include "tool/recording/RecordingLines.h"

namespace tool {
namespace {

using std::chrono::microseconds;

/// A recording of one or several devices at times of the test's choice.
class RecordingLinesTest : public testing::Test {
 protected:
  std::unique_ptr<DeliveryLines> lines(std::optional<std::uint32_t> device = std::nullopt) {
    return recordingLines(
        state_, [this] { return now_; }, device);
  }
  std::string report(DeliveryLines& lines, microseconds time,
                     const std::vector<std::uint8_t>& bytes) {
    now_ = time;
    std::string out;
    lines.appendReport(out, bytes, 0);
    return out;
  }

  std::shared_ptr<RecordingState> state_ = std::make_shared<RecordingState>(200);
  microseconds now_{};
};

TEST_F(RecordingLinesTest, TimeBeginsWithTheFirstReport) {
  const auto device = lines();
  EXPECT_EQ(report(*device, microseconds(5'000'000), {0x00, 0xff}), "E: 000000.000000 2 00 ff\n");
  EXPECT_EQ(report(*device, microseconds(5'000'007), {0x1a}), "E: 000000.000007 1 1a\n");
  EXPECT_EQ(report(*device, microseconds(3'605'123'456), {}), "E: 003600.123456 0\n");
}

TEST_F(RecordingLinesTest, TimeIsCommonToAllDevices) {
  const auto first = lines(0);
  const auto second = lines(1);
  EXPECT_EQ(report(*second, microseconds(100), {2}), "D: 1\nE: 000000.000000 1 02\n");
  EXPECT_EQ(report(*first, microseconds(150), {1}), "D: 0\nE: 000000.000050 1 01\n");
  EXPECT_EQ(report(*second, microseconds(90), {2}), "D: 1\nE: 000000.000000 1 02\n")
      << "a clock read a moment earlier";
}

TEST_F(RecordingLinesTest, OnlyReportsAreRecorded) {
  const auto device = lines();
  std::string out;
  device->appendStatus(out, WLHIDEventRouterClientStatusRouting);
  device->appendElementValues(out, *platform::NSArray::arrayWithObjects({}));
  device->appendEnd(out, "it is over");
  EXPECT_EQ(out, "");
}

TEST_F(RecordingLinesTest, WhatWouldMakeItTooLargeIsLeftOut) {
  state_ = std::make_shared<RecordingState>(45);
  const auto device = lines();
  EXPECT_EQ(report(*device, {}, {1}).size(), 22U);
  EXPECT_EQ(report(*device, {}, {1}).size(), 22U);
  EXPECT_EQ(state_->leftOut, 0U);
  EXPECT_EQ(report(*device, {}, {1}), "");
  EXPECT_EQ(report(*device, {}, {}), "") << "nothing follows what is missing";
  EXPECT_EQ(state_->leftOut, 2U);
}

TEST(RecordingHeader, SaysWhatIsKnownOfTheDevice) {
  router::DeviceDescription device{
      .name = "Pen\nE: fake", .bus = 0x18, .vendor = 0x56a, .source = ""};
  EXPECT_EQ(recordingHeader(device, {0x05, 0x01}, std::nullopt),
            "R: 2 05 01\nN: Pen\\x0aE: fake\nI: 18 056a 0000\n");
  device.physicalPath = "usb-1/input0";
  EXPECT_EQ(recordingHeader(device, {}, 3),
            "D: 3\nR: 0\nN: Pen\\x0aE: fake\nP: usb-1/input0\nI: 18 056a 0000\n");
}

TEST(RecordingFooter, SaysHowManyReportsAreMissing) {
  EXPECT_EQ(recordingFooter(Losses{3, false}), "# reports lost: 3\n");
  EXPECT_EQ(recordingFooter(Losses{3, true}), "# reports lost: 3, by all sessions together\n");
  EXPECT_EQ(recordingFooter(Losses{0, true}), "");
  EXPECT_EQ(recordingFooter(std::nullopt), "");
}

TEST_F(RecordingLinesTest, TheRoutersReaderReadsIt) {
  const router::DeviceDescription description{
      .name = "Pen", .bus = 3, .vendor = 1, .product = 2, .source = ""};
  const auto device = lines();
  std::string text = recordingHeader(description, {0x05, 0x01}, std::nullopt);
  text += report(*device, microseconds(10), {7, 8});
  text += report(*device, microseconds(1'000'010), {9});
  text += recordingFooter(Losses{2, false});
  std::string_view rest = text;
  router::RecordingReader reader(
      [&](std::span<char> buffer) {
        const std::size_t count = rest.copy(buffer.data(), buffer.size());
        rest.remove_prefix(count);
        return count;
      },
      "test");
  EXPECT_EQ(reader.header().name, "Pen");
  EXPECT_EQ(reader.header().product, 2U);
  router::RecordedReport recorded;
  ASSERT_TRUE(reader.next(&recorded));
  EXPECT_EQ(recorded.time, microseconds(0));
  EXPECT_EQ(std::vector(recorded.bytes.begin(), recorded.bytes.end()),
            (std::vector<std::uint8_t>{7, 8}));
  ASSERT_TRUE(reader.next(&recorded));
  EXPECT_EQ(recorded.time, microseconds(1'000'000));
  EXPECT_FALSE(reader.next(&recorded));
}

class GrowingFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::string content() const {
    std::ifstream in(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  const testsupport::TemporaryDirectory directory_;
  const std::string path_ = directory_.path() / "file";
};

TEST_F(GrowingFileTest, KeepsWholeLines) {
  GrowingFile file(path_);
  file.write("one\ntwo\nthr");
  EXPECT_EQ(content(), "one\ntwo\nthr");
  EXPECT_EQ(file.finish(), 8U);
  EXPECT_EQ(content(), "one\ntwo\n");
}

TEST_F(GrowingFileTest, KeepsWholeLinesOfWhatCannotBeWritten) {
  GrowingFile file(path_);
  file.write("one\n");
  {
    const testsupport::FileSizeLimit full(10);
    EXPECT_THROW(file.write("two\nthree\n"), Failure);
  }
  EXPECT_EQ(content(), "one\ntwo\n");
}

TEST_F(GrowingFileTest, FindsTheLastLineHoweverFarBackItEnds) {
  GrowingFile file(path_);
  file.write("one\n" + std::string(200'000, 'x'));
  EXPECT_EQ(file.finish(), 4U);
}

TEST_F(GrowingFileTest, WithoutAWholeLineNothingIsKept) {
  GrowingFile file(path_);
  EXPECT_EQ(file.finish(), 0U);
  file.write("half");
  EXPECT_EQ(file.finish(), 0U);
  EXPECT_EQ(content(), "");
}

TEST_F(GrowingFileTest, IsForItsOwnerAndOverwritesNothing) {
  {
    GrowingFile file(path_);
    file.write("line\n");
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
  }
  EXPECT_THROW(GrowingFile second(path_), Failure);
  EXPECT_EQ(content(), "line\n");
  const std::string link = directory_.path() / "link";
  std::filesystem::create_symlink(directory_.path() / "elsewhere", link);
  EXPECT_THROW(GrowingFile third(link), Failure) << "a link is not followed";
}

TEST_F(GrowingFileTest, CanBeTakenBack) {
  GrowingFile file(path_);
  file.remove();
  EXPECT_FALSE(std::filesystem::exists(path_));
}

class RecordVerbTest : public VerbTest {};

TEST_F(RecordVerbTest, NothingIsCreatedBeforeAllIsKnown) {
  const std::string file = directory_.path() / "file";
  EXPECT_TRUE(isRefusal(run(addRecordVerb, {"record", "1", file, "--seconds", "nan"}), 2,
                        "--seconds must be a number from 0 to 1000000000"));
  EXPECT_TRUE(isRefusal(run(addRecordVerb, {"record", "1", file}), 1,
                        "the router is not installed, or not in this command's version (install it "
                        "with: wlhid install)"));
  installVersion("1.0");
  EXPECT_TRUE(isRefusal(run(addRecordVerb, {"record", "1", file}), 1,
                        "there is no device \"1\" (wlhid devices lists them)"));
  const std::string id = addDevice("m.hid", "Strange");
  EXPECT_TRUE(
      run(addRecordVerb, {"record", id, file}).err.starts_with("\"Strange\" is sensitive ("));
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(RecordVerbTest, WhatTheRouterRefusesLeavesNoFile) {
  installVersion("1.0");
  const std::string id = addDevice("m.hid", "Strange");
  const std::string file = directory_.path() / "file";
  bool wasThere = false;
  const FakeRouter router(platform_, [&](platform::ScriptedConnection& connection) {
    wasThere = std::filesystem::exists(file);
    connection.deliverReply(
        router::routerError(router::IOReturn::NotPermitted, "this user may not have it"));
  });
  EXPECT_TRUE(
      isRefusal(run(addRecordVerb, {"record", id, file, "--sensitive"}), 1,
                "the router refused: this user may not have it (HIDEventRouterDomain -536870174)"));
  EXPECT_TRUE(wasThere);
  EXPECT_FALSE(std::filesystem::exists(file));
}

}  // namespace
}  // namespace tool
