// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/DeviceList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tool::monitor {
namespace {

using testing::ElementsAre;

wlhid::Device device(std::uint64_t id, const std::string& name) {
  wlhid::Device device;
  device.id = id;
  device.name = name;
  device.permission = wlhid::Permission::Yes;
  return device;
}

std::vector<std::string> namesIn(const Shown& shown) {
  std::vector<std::string> names;
  for (const ListedDevice& each : shown.devices) names.push_back(each.name);
  return names;
}

TEST(DeviceList, FollowsPluggingAndUnplugging) {
  DeviceList list;
  Shown shown;
  list.set({device(3, "Pen"), device(1, "Mouse")});
  list.showIn(shown, "");
  EXPECT_THAT(namesIn(shown), ElementsAre("Mouse", "Pen"));
  list.put(device(2, "Dial"));
  list.remove(1);
  list.showIn(shown, "");
  EXPECT_THAT(namesIn(shown), ElementsAre("Dial", "Pen"));
  EXPECT_NE(list.find(2), nullptr);
  EXPECT_EQ(list.find(1), nullptr);
}

TEST(DeviceList, TheCursorStaysOnItsDevice) {
  DeviceList list;
  Shown shown;
  list.set({device(2, "B"), device(4, "D"), device(6, "F")});
  list.showIn(shown, "");
  shown.cursor = 1;
  list.put(device(1, "A"));
  list.showIn(shown, "");
  EXPECT_EQ(shown.cursor, 2U) << "still D";
  list.remove(4);
  list.showIn(shown, "");
  EXPECT_EQ(shown.devices[shown.cursor].name, "F") << "the next one";
  list.remove(6);
  list.showIn(shown, "");
  EXPECT_EQ(shown.devices[shown.cursor].name, "B") << "or the last one";
  list.set({});
  list.showIn(shown, "");
  EXPECT_EQ(shown.cursor, 0U);
}

TEST(DeviceList, TheCursorBeginsOnTheOpenDevice) {
  DeviceList list;
  Shown shown;
  shown.open = 4;
  list.showIn(shown, "");
  list.set({device(2, "B"), device(4, "D"), device(6, "F")});
  list.showIn(shown, "");
  EXPECT_EQ(shown.cursor, 1U);
}

TEST(DeviceList, SaysClassAndState) {
  DeviceList list;
  Shown shown;
  wlhid::Device keyboard = device(1, "");
  keyboard.deviceClass = wlhid::DeviceClass::Sensitive;
  keyboard.permission = wlhid::Permission::Administrator;
  keyboard.collections = {{1, 6}};
  list.set({keyboard, device(2, "Pen")});
  shown.open = 2;
  list.showIn(shown, "routing");
  EXPECT_EQ(shown.devices[0].name, "(no name)");
  EXPECT_EQ(shown.devices[0].what, "Keyboard");
  EXPECT_EQ(shown.devices[0].deviceClass, "sensitive");
  EXPECT_EQ(shown.devices[0].state, "ask admin");
  EXPECT_EQ(shown.devices[1].deviceClass, "-") << "a user's own root has no classes";
  EXPECT_EQ(shown.devices[1].state, "routing");
}

}  // namespace
}  // namespace tool::monitor
