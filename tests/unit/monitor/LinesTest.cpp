// SPDX-License-Identifier: Apache-2.0

// What is printed where there is no screen.
#include <gtest/gtest.h>

#include "Devices.h"
#include "tool/monitor/Showing.h"

namespace tool::monitor {
namespace {

TEST(Lines, SayHowTheDeviceIsAndWhatItsElementsAre) {
  DeviceModel pen(penDescriptor());
  Shown shown;
  shown.state = "routing Example Pen";
  EXPECT_EQ(lineOf(shown), "routing Example Pen");
  shown.model = &pen;
  EXPECT_EQ(lineOf(shown), "routing Example Pen; 0 reports/s");
  for (int i = 0; i < 200; ++i) pen.take(8_ms * i, penReport(true, 900, 490, 3));
  shown.now = 1600_ms;
  shown.lost = Losses{2, true};
  EXPECT_EQ(
      lineOf(shown),
      "routing Example Pen; 125 reports/s, 2 lost, by all sessions together; Tip Switch=on In "
      "Range=on X=900 Y=490 Tip Pressure=3");
}

TEST(Lines, LeaveOutKeysThatAreUp) {
  DeviceModel keyboard(keyboardDescriptor());
  keyboard.take(0_ms, Bytes{0x02, 0x04, 0x00});
  Shown shown;
  shown.model = &keyboard;
  shown.state = "routing";
  EXPECT_EQ(lineOf(shown), "routing; 0 reports/s; Left Shift=on Keyboard 1=A");
}

}  // namespace
}  // namespace tool::monitor
