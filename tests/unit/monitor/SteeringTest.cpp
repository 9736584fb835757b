// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Steering.h"

#include <gtest/gtest.h>

#include "Devices.h"

namespace tool::monitor {
namespace {

class SteeringTest : public testing::Test {
 protected:
  SteeringTest() {
    for (const std::uint64_t id : {1, 2, 3})
      shown_.devices.push_back({id, "Device", "Pen", "ordinary", "you may"});
  }
  void open(DeviceModel& model) {
    shown_.open = 1;
    shown_.model = &model;
  }
  Wish take(Key key, int columns = 80) { return monitor::take(key, shown_, 24, columns); }

  Shown shown_;
};

TEST_F(SteeringTest, CharactersAreKeys) {
  EXPECT_EQ(keyOf(U'q'), Key::Quit);
  EXPECT_EQ(keyOf(0x03), Key::Quit) << "Ctrl-C";
  EXPECT_EQ(keyOf(0x1a), Key::Suspend) << "Ctrl-Z";
  EXPECT_EQ(keyOf(U'\r'), Key::Enter);
  EXPECT_EQ(keyOf(U' '), Key::Pause);
  EXPECT_EQ(keyOf(U'?'), Key::Help);
  EXPECT_EQ(keyOf(U'é'), Key::Other);
}

TEST_F(SteeringTest, TheCursorStaysInTheList) {
  EXPECT_EQ(take(Key::Up), Wish::Nothing);
  EXPECT_EQ(shown_.cursor, 0U);
  for (int i = 0; i < 5; ++i) take(Key::Down);
  EXPECT_EQ(shown_.cursor, 2U);
  take(Key::Up);
  EXPECT_EQ(shown_.cursor, 1U);
  EXPECT_EQ(take(Key::Enter), Wish::Open);
  shown_.devices.clear();
  shown_.cursor = 0;
  take(Key::Down);
  EXPECT_EQ(shown_.cursor, 0U);
  EXPECT_EQ(take(Key::Enter), Wish::Nothing) << "there is none";
}

TEST_F(SteeringTest, WhereNoListIsShownTheArrowsScroll) {
  DeviceModel pen(penDescriptor());
  open(pen);
  take(Key::Down);
  EXPECT_EQ(shown_.scroll, 1U);
  EXPECT_EQ(shown_.cursor, 0U);
  take(Key::Down, 120);
  EXPECT_EQ(shown_.scroll, 1U);
  EXPECT_EQ(shown_.cursor, 1U) << "a wide screen shows the list";
  take(Key::PageDown);
  EXPECT_EQ(shown_.scroll, 5U) << "six elements";
  take(Key::PageUp);
  EXPECT_EQ(shown_.scroll, 0U);
}

TEST_F(SteeringTest, TabGoesRoundTheViewsThatHaveSomethingToShow) {
  DeviceModel pen(penDescriptor());
  open(pen);
  for (const View view :
       {View::Devices, View::Elements, View::Path, View::Board, View::Reports, View::All}) {
    take(Key::Tab);
    EXPECT_EQ(shown_.view, view);
  }
  DeviceModel keyboard(keyboardDescriptor());
  open(keyboard);
  for (const View view : {View::Devices, View::Elements, View::Board}) {
    take(Key::Tab);
    EXPECT_EQ(shown_.view, view) << "a keyboard has no path";
  }
  take(Key::Escape);
  EXPECT_EQ(shown_.view, View::All);
}

TEST_F(SteeringTest, HelpComesAndGoes) {
  take(Key::Help);
  EXPECT_TRUE(shown_.hasHelp);
  take(Key::Help);
  EXPECT_FALSE(shown_.hasHelp);
  take(Key::Help);
  take(Key::Escape);
  EXPECT_FALSE(shown_.hasHelp);
}

TEST_F(SteeringTest, WithoutADeviceThereIsNothingToDoWithIt) {
  for (const Key key : {Key::Pause, Key::Step, Key::Record, Key::Exclusive, Key::Other, Key::Tab})
    EXPECT_EQ(take(key), Wish::Nothing);
  EXPECT_EQ(shown_.view, View::All);
  EXPECT_EQ(take(Key::Quit), Wish::Quit);
  EXPECT_EQ(take(Key::Suspend), Wish::Suspend);
  DeviceModel pen(penDescriptor());
  open(pen);
  EXPECT_EQ(take(Key::Pause), Wish::Pause);
  EXPECT_EQ(take(Key::Step), Wish::Step);
  EXPECT_EQ(take(Key::Record), Wish::Record);
  EXPECT_EQ(take(Key::Exclusive), Wish::Exclusive);
}

}  // namespace
}  // namespace tool::monitor
