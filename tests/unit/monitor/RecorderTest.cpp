// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Recorder.h"

#include <gtest/gtest.h>

#include "Devices.h"
#include "router/Recording.h"
#include "tests/support/TemporaryDirectory.h"
#include "tool/command/Command.h"

namespace tool::monitor {
namespace {

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
