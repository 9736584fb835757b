// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/DeviceModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Devices.h"

namespace tool::monitor {
namespace {

using testing::ElementsAre;

std::vector<std::string> namesOf(const DeviceModel& model) {
  std::vector<std::string> names;
  for (const Track& track : model.tracks()) names.push_back(track.name);
  return names;
}

std::vector<std::string> valuesOf(const DeviceModel& model) {
  std::vector<std::string> values;
  for (const Track& track : model.tracks()) values.push_back(track.valueText());
  return values;
}

TEST(DeviceModel, TracksEveryElementByItsName) {
  DeviceModel pen(penDescriptor());
  EXPECT_THAT(namesOf(pen),
              ElementsAre("Tip Switch", "Barrel", "In Range", "X", "Y", "Tip Pressure"));
  EXPECT_THAT(valuesOf(pen), ElementsAre("-", "-", "-", "-", "-", "-"));
  pen.take(0_ms, penReport(true, 500, 1000, 51));
  EXPECT_THAT(valuesOf(pen), ElementsAre("on", "off", "on", "500", "1000", "51"));
  EXPECT_EQ(pen.tracks()[3].partOf(500), 0.5);
  EXPECT_EQ(pen.tracks()[5].partOf(51), 0.2);
}

TEST(DeviceModel, NamesWhatASlotSelects) {
  DeviceModel keyboard(keyboardDescriptor());
  keyboard.take(0_ms, Bytes{0x00, 0x05, 0x00});
  const auto names = namesOf(keyboard);
  ASSERT_EQ(names.size(), 4U);
  EXPECT_NE(names[2], names[3]) << "slots of one array";
  EXPECT_EQ(valuesOf(keyboard)[2], "B");
  EXPECT_EQ(valuesOf(keyboard)[3], "none");
}

TEST(DeviceModel, MarksWhatHasChangedInAReport) {
  DeviceModel mouse(mouseDescriptor());
  mouse.take(0_ms, Bytes{0, 1, 2, 0});
  mouse.take(8_ms, Bytes{0, 1, 3, 0});
  const auto& latest = mouse.reports().latest();
  ASSERT_EQ(latest.size(), 2U);
  EXPECT_THAT(latest[0].isChanged, ElementsAre(false, false, false, false)) << "the first one";
  EXPECT_THAT(latest[1].isChanged, ElementsAre(false, false, true, false));
  EXPECT_EQ(latest[1].time, 8_ms);
}

TEST(DeviceModel, ALongerReportHasChangedInWhatIsNew) {
  RawReports reports;
  reports.take(0_ms, 0, Bytes{1, 2});
  reports.take(1_ms, 0, Bytes{1, 2, 3});
  EXPECT_THAT(reports.latest()[1].isChanged, ElementsAre(false, false, true));
}

TEST(DeviceModel, ComparesAReportWithThoseOfItsOwnID) {
  RawReports reports;
  reports.take(0_ms, 1, Bytes{1, 7});
  reports.take(1_ms, 2, Bytes{2, 9});
  reports.take(2_ms, 1, Bytes{1, 8});
  EXPECT_THAT(reports.latest()[1].isChanged, ElementsAre(false, false));
  EXPECT_THAT(reports.latest()[2].isChanged, ElementsAre(false, true));
}

TEST(DeviceModel, KeepsTheLatestReportsAndTheirFirstBytes) {
  RawReports reports;
  const Bytes large(1000, 7);
  for (std::size_t i = 0; i < RawReports::kKept + 5; ++i)
    reports.take(Time(static_cast<std::int64_t>(i)), 0, large);
  ASSERT_EQ(reports.latest().size(), RawReports::kKept);
  EXPECT_EQ(reports.latest().front().time, Time(5));
  EXPECT_EQ(reports.latest().back().bytes.size(), RawReports::kBytes);
  EXPECT_EQ(reports.latest().back().length, 1000U);
}

TEST(DeviceModel, TakesAnyDescriptorAndAnyReport) {
  for (const Bytes& descriptor : {Bytes{}, Bytes{0xff, 0xff, 0xff}, Bytes{0x81}, penDescriptor()}) {
    DeviceModel model(descriptor);
    model.take(0_ms, Bytes{});
    model.take(1_ms, Bytes(300, 0xff));
    EXPECT_EQ(model.pace().count(), 2U);
  }
}

TEST(DeviceModel, ShowsNoMoreElementsThanFit) {
  Bytes descriptor{0x05, 0x01, 0x09, 0x04, 0xa1, 0x01, 0x09, 0x30, 0x25, 0x01, 0x75, 0x01};
  for (int i = 0; i < 3; ++i)  // 1000 each
    descriptor.insert(descriptor.end(), {0x96, 0xe8, 0x03, 0x81, 0x02});
  descriptor.push_back(0xc0);
  EXPECT_EQ(DeviceModel(descriptor).tracks().size(), Tracks::kMost);
}

}  // namespace
}  // namespace tool::monitor
