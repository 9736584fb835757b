// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Devices.h"
#include "router/Recording.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TemporaryDirectory.h"
#include "tool/command/Command.h"

namespace tool::monitor {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

std::size_t reportsIn(const std::string& path) {
  const auto file = router::RecordingFile::at(path, 0);
  auto reader = file.read();
  std::size_t count = 0;
  for (router::RecordedReport report; reader.next(&report);) ++count;
  return count;
}

TEST(Recorder, WritesARecordingThatCanBePlayedAgain) {
  const testsupport::TemporaryDirectory directory;
  const std::string path = directory.path() / "pen.hid";
  router::DeviceDescription device;
  device.name = "Example Pen";
  device.bus = 3;
  Recorder recorder(path, device, penDescriptor());
  recorder.take(5000_ms, penReport(true, 1, 2, 3));
  recorder.write();
  recorder.take(5008_ms, penReport(false, 4, 5, 6));
  EXPECT_EQ(recorder.reports(), 2U);
  EXPECT_EQ(recorder.finish(), path + ": 2 reports");
  const auto file = router::RecordingFile::at(path, 0);
  auto reader = file.read();
  EXPECT_EQ(reader.header().name, "Example Pen");
  EXPECT_EQ(reader.header().reportDescriptor, penDescriptor());
  router::RecordedReport report;
  ASSERT_TRUE(reader.next(&report));
  EXPECT_EQ(report.time, 0_ms) << "time begins with the first report";
  ASSERT_TRUE(reader.next(&report));
  EXPECT_EQ(report.time, 8_ms);
  EXPECT_EQ(Bytes(report.bytes.begin(), report.bytes.end()), penReport(false, 4, 5, 6));
  EXPECT_FALSE(reader.next(&report));
}

/// A recording of one report, and of a second one for which the disk has room only for a half.
class RecorderOnFullDisk : public testing::Test {
 protected:
  RecorderOnFullDisk() {
    recorder_.take(5000_ms, penReport(true, 1, 2, 3));
    recorder_.write();
    size_ = std::filesystem::file_size(path_);
    recorder_.take(5008_ms, penReport(false, 4, 5, 6));
  }
  void expectWholeReports() const {
    EXPECT_EQ(std::filesystem::file_size(path_), size_);
    EXPECT_EQ(reportsIn(path_), 1U);
  }

  static constexpr std::uintmax_t kHalf = 12;
  const testsupport::TemporaryDirectory directory_;
  const std::string path_ = directory_.path() / "pen.hid";
  Recorder recorder_{path_, {}, penDescriptor()};
  std::uintmax_t size_ = 0;
};

TEST_F(RecorderOnFullDisk, LeavesWholeReports) {
  const testsupport::FileSizeLimit full(size_ + kHalf);
  EXPECT_THAT([&] { recorder_.write(); },
              ThrowsMessage<Failure>(path_ + ": File too large (what had been recorded before is "
                                             "in the file)"));
  expectWholeReports();
}

TEST_F(RecorderOnFullDisk, LeavesWholeReportsAlsoAtTheEnd) {
  const testsupport::FileSizeLimit full(size_ + kHalf);
  EXPECT_THAT([&] { static_cast<void>(recorder_.finish()); },
              ThrowsMessage<Failure>(HasSubstr("File too large")));
  expectWholeReports();
}

TEST(Recorder, OverwritesNothing) {
  const testsupport::TemporaryDirectory directory;
  const std::string path = directory.path() / "pen.hid";
  Recorder recorder(path, {}, penDescriptor());
  EXPECT_THROW(Recorder(path, {}, penDescriptor()), Failure);
}

TEST(Recorder, NamesItsFileHarmlessly) {
  constexpr std::int64_t kNoon = 1'769'860'800;
  const std::string end = ".hid";
  for (const auto& [device, beginning] :
       {std::pair{"Example Pen", "Example-Pen-2026"}, std::pair{"../../etc/x", "etc-x-2026"},
        std::pair{"\x1b[2J", "2J-2026"}, std::pair{"", "device-2026"},
        std::pair{"Stift (2)", "Stift-2-2026"}}) {
    const std::string name = recordingName(device, kNoon);
    EXPECT_TRUE(name.starts_with(beginning)) << name;
    EXPECT_TRUE(name.ends_with(end)) << name;
    EXPECT_EQ(name.find('/'), std::string::npos);
  }
}

}  // namespace
}  // namespace tool::monitor
