// SPDX-License-Identifier: Apache-2.0

#include "InputFixture.h"

namespace {

using inputtest::InputFixture;
using inputtest::Lines;
using testing::ElementsAre;
using wlhid::Device;
using wlhid::DeviceWatch;

wlhid::DeviceWatchHandlers noting(Lines& lines) {
  return {.listed =
              [&lines](const std::vector<Device>& devices) {
                std::string line = "listed";
                for (const Device& each : devices) line += " " + each.name;
                lines.add(line);
              },
          .arrived = [&lines](const Device& device) { lines.add("arrived " + device.name); },
          .departed = [&lines](const Device& device) { lines.add("departed " + device.name); },
          .unavailable = [&lines](const std::string& why) { lines.add("unavailable " + why); }};
}

class DeviceWatchTest : public InputFixture {
 protected:
  Lines lines_;
};

TEST_F(DeviceWatchTest, ListsWhatIsThere) {
  wlhid::Router::install();
  const std::uint64_t id = addDevice("Mouse");
  const auto devices = wlhid::devices({.matching = {{.usagePage = 1, .usage = 2}}});
  ASSERT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices[0].id, id);
  EXPECT_EQ(devices[0].name, "Mouse");
  EXPECT_EQ(devices[0].vendor, 0x627U);
  EXPECT_THAT(devices[0].collections, ElementsAre(wlhid::Usage{1, 2}));
  EXPECT_EQ(devices[0].collections[0].name(), "Mouse");
  EXPECT_EQ(devices[0].permission, wlhid::Permission::Yes);
  EXPECT_EQ(devices[0].explanation, "you may: it is your own root's");
  EXPECT_TRUE(wlhid::devices({.excluding = {{.vendor = 0x627}}}).empty());
  EXPECT_EQ(wlhid::reportDescriptor(id).size(), 19U);
}

TEST_F(DeviceWatchTest, WithoutARouterSaysSo) {
  EXPECT_THROW(static_cast<void>(wlhid::devices()), wlhid::Error);
  wlhid::Router::install();
  try {
    static_cast<void>(wlhid::reportDescriptor(7));
    FAIL() << "it has a descriptor";
  } catch (const wlhid::Error& error) {
    EXPECT_STREQ(error.what(), "no device has the registry entry ID 0x7");
  }
}

TEST_F(DeviceWatchTest, TellsTheListOnceAndThenTheChangesAlsoAcrossARoutersDeath) {
  wlhid::Router::install();
  addDevice("Mouse");
  const DeviceWatch watch(noting(lines_));
  lines_.await("listed Mouse");
  addDevice("Pen");
  lines_.await("arrived Pen");
  killRouter();
  lines_.await("unavailable the router has ended unexpectedly");
  removeDevice("Mouse");
  lines_.await("departed Mouse");
  removeDevice("Pen");
  lines_.await("departed Pen");
  std::vector<std::string> told = lines_.all();
  std::erase_if(told, [](const std::string& line) { return line.starts_with("unavailable"); });
  EXPECT_THAT(told, ElementsAre("listed Mouse", "arrived Pen", "departed Mouse", "departed Pen"));
}

TEST_F(DeviceWatchTest, TellsOnlyOfWhatItsFilterAdmits) {
  wlhid::Router::install();
  addDevice("Mouse");
  const DeviceWatch watch(noting(lines_), {.matching = {{.usagePage = 0x0d}}});
  lines_.await("listed");
  addRecording("Pen",
               "R: 19 05 0d 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 81 02 c0\nN: Pen\n"
               "I: 3 0627 0002\nE: 000000.000000 1 01\n");
  lines_.await("arrived Pen");
  addDevice("Other");
  removeDevice("Mouse");
  removeDevice("Pen");
  lines_.await("departed Pen");
  EXPECT_THAT(lines_.all(), ElementsAre("listed", "arrived Pen", "departed Pen"));
}

TEST_F(DeviceWatchTest, TellsWhatHasChangedWhileThereWasNoRouter) {
  wlhid::Router::install();
  addDevice("Mouse");
  wlhid::DeviceWatchHandlers handlers = noting(lines_);
  handlers.changed = [this](const Device& device) { lines_.add("changed " + device.name); };
  const DeviceWatch watch(std::move(handlers));
  lines_.await("listed Mouse");
  wlhid::Router::remove();
  lines_.await("unavailable");
  removeDevice("Mouse");
  addRecording("Mouse",
               "R: 19 05 01 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 81 02 c0\nN: Ball\n"
               "I: 3 0627 0001\nE: 000000.000000 1 01\n");
  wlhid::Router::install();
  lines_.await("changed Ball");
  EXPECT_THAT(lines_.all(), testing::Not(testing::Contains("departed Mouse")));
}

TEST_F(DeviceWatchTest, BeginsWhenThereIsARouter) {
  addDevice("Mouse");
  const DeviceWatch watch(noting(lines_));
  lines_.await("unavailable no router serves applications here");
  wlhid::Router::install();
  lines_.await("listed Mouse");
}

}  // namespace
