// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Devices.h"

namespace tool::monitor {
namespace {

using testing::ElementsAre;

std::vector<std::string> downOn(const DeviceModel& model) {
  std::vector<std::string> names;
  for (const BoardKey& key : model.board().keys())
    if (key.isDown) names.push_back(key.name);
  return names;
}

TEST(Board, HasEveryKeyOfAKeyboard) {
  DeviceModel keyboard(keyboardDescriptor());
  EXPECT_EQ(keyboard.board().keys().size(), 28U);
  EXPECT_THAT(downOn(keyboard), ElementsAre());
}

TEST(Board, ShowsWhatTheSlotsSelectAndForgetsWhatTheyNoLongerDo) {
  DeviceModel keyboard(keyboardDescriptor());
  keyboard.take(0_ms, Bytes{0x02, 0x04, 0x05});
  EXPECT_THAT(downOn(keyboard), ElementsAre("Left Shift", "A", "B"));
  keyboard.take(1_ms, Bytes{0x00, 0x05, 0x00});
  EXPECT_THAT(downOn(keyboard), ElementsAre("B"));
  keyboard.take(2_ms, Bytes{0x00, 0x00, 0x00});
  EXPECT_THAT(downOn(keyboard), ElementsAre());
}

TEST(Board, RemembersWhatWentDownLast) {
  DeviceModel mouse(mouseDescriptor());
  mouse.take(0_ms, Bytes{1, 0, 0, 0});
  mouse.take(1_ms, Bytes{5, 0, 0, 0});
  const auto& keys = mouse.board().keys();
  ASSERT_EQ(keys.size(), 3U);
  EXPECT_EQ(keys[0].lastDown, 1U);
  EXPECT_EQ(keys[1].lastDown, 0U);
  EXPECT_EQ(keys[2].lastDown, 2U);
  EXPECT_THAT(downOn(mouse), ElementsAre("Button 1", "Button 3"));
}

TEST(Board, AReportThatIsTooShortChangesNothing) {
  DeviceModel mouse(mouseDescriptor());
  mouse.take(0_ms, Bytes{1, 0, 0, 0});
  mouse.take(1_ms, Bytes{});
  EXPECT_THAT(downOn(mouse), ElementsAre("Button 1"));
}

}  // namespace
}  // namespace tool::monitor
