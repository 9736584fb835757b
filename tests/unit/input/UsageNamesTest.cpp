// SPDX-License-Identifier: Apache-2.0

#include "input/UsageNames.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/foundation/Format.h"

namespace wlhid {
namespace {

using platform::stringWithFormat;

TEST(UsageName, NamesTheCommonUsages) {
  EXPECT_EQ(usageName(0x01, 0x30), "X");
  EXPECT_EQ(usageName(0x01, 0x31), "Y");
  EXPECT_EQ(usageName(0x01, 0x38), "Wheel");
  EXPECT_EQ(usageName(0x01, 0x93), "D-pad Left");
  EXPECT_EQ(usageName(0x0c, 0xe9), "Volume Up");
  EXPECT_EQ(usageName(0x0d, 0x42), "Tip Switch");
  EXPECT_EQ(usageName(0x08, 0x02), "Caps Lock LED");
}

/// Every name of a page, as "1 Pointer, 2 Mouse".
std::string namesOf(std::uint32_t page) {
  std::string names;
  for (std::uint32_t usage = 0; usage < 0x400; ++usage) {
    const std::string name = usageName(page, usage);
    if (name == stringWithFormat("%04x/%04x", page, usage)) continue;
    names += (names.empty() ? "" : ", ") + stringWithFormat("%x %@", usage, name);
  }
  return names;
}

TEST(UsageName, HasTheseNamesAndNoOthers) {
  EXPECT_EQ(namesOf(0x01),
            "1 Pointer, 2 Mouse, 4 Joystick, 5 Game Pad, 6 Keyboard, 7 Keypad, 8 Multi-axis "
            "Controller, 30 X, 31 Y, 32 Z, 33 Rx, 34 Ry, 35 Rz, 36 Slider, 37 Dial, 38 Wheel, 39 "
            "Hat Switch, 3a Counted Buffer, 3b Byte Count, 3c Motion Wakeup, 3d Start, 3e "
            "Select, 40 Vx, 41 Vy, 42 Vz, 43 Vbrx, 44 Vbry, 45 Vbrz, 46 Vno, 48 Resolution, 80 "
            "System Control, 81 Power Down, 82 Sleep, 83 Wake Up, 90 D-pad Up, 91 D-pad Down, 92 "
            "D-pad Right, 93 D-pad Left");
  EXPECT_EQ(namesOf(0x07),
            "1 Rollover Error, 4 A, 5 B, 6 C, 7 D, 8 E, 9 F, a G, b H, c I, d J, e K, f L, 10 M, "
            "11 N, 12 O, 13 P, 14 Q, 15 R, 16 S, 17 T, 18 U, 19 V, 1a W, 1b X, 1c Y, 1d Z, 1e 1, "
            "1f 2, 20 3, 21 4, 22 5, 23 6, 24 7, 25 8, 26 9, 27 0, 28 Enter, 29 Escape, "
            "2a Backspace, 2b Tab, 2c Space, 2d -, 2e =, 2f [, 30 ], 31 \\, 32 #, 33 ;, 34 ', "
            "35 `, 36 ,, 37 ., 38 /, 39 Caps Lock, 3a F1, 3b F2, 3c F3, 3d F4, 3e F5, 3f F6, "
            "40 F7, 41 F8, 42 F9, 43 F10, 44 F11, 45 F12, 46 Print Screen, 47 Scroll Lock, "
            "48 Pause, 49 Insert, 4a Home, 4b Page Up, 4c Delete, 4d End, 4e Page Down, "
            "4f Right, 50 Left, 51 Down, 52 Up, 53 Num Lock, 54 Keypad /, 55 Keypad *, "
            "56 Keypad -, 57 Keypad +, 58 Keypad Enter, 59 Keypad 1, 5a Keypad 2, 5b Keypad 3, "
            "5c Keypad 4, 5d Keypad 5, 5e Keypad 6, 5f Keypad 7, 60 Keypad 8, 61 Keypad 9, "
            "62 Keypad 0, 63 Keypad ., 64 <, 65 Application, 68 F13, 69 F14, 6a F15, 6b F16, "
            "6c F17, 6d F18, 6e F19, 6f F20, 70 F21, 71 F22, 72 F23, 73 F24, e0 Left Control, "
            "e1 Left Shift, e2 Left Alt, e3 Left GUI, e4 Right Control, e5 Right Shift, "
            "e6 Right Alt, e7 Right GUI");
  EXPECT_EQ(namesOf(0x08),
            "1 Num Lock LED, 2 Caps Lock LED, 3 Scroll Lock LED, 4 Compose LED, 5 Kana LED");
  EXPECT_EQ(namesOf(0x0c),
            "1 Consumer Control, 30 Power, 40 Menu, 6f Brightness Up, 70 Brightness Down, b0 "
            "Play, b1 Pause, b2 Record, b3 Fast Forward, b4 Rewind, b5 Next Track, b6 Previous "
            "Track, b7 Stop, b8 Eject, cd Play/Pause, e2 Mute, e9 Volume Up, ea Volume Down, 18a "
            "Mail, 192 Calculator, 221 Search, 223 Browser Home, 224 Back, 225 Forward, 227 "
            "Refresh, 22a Bookmarks, 238 AC Pan");
  EXPECT_EQ(namesOf(0x0d),
            "1 Digitizer, 2 Pen, 3 Light Pen, 4 Touch Screen, 5 Touch Pad, e Device "
            "Configuration, 20 Stylus, 21 Puck, 22 Finger, 23 Device Settings, 30 Tip Pressure, "
            "31 Barrel Pressure, 32 In Range, 33 Touch, 38 Transducer Index, 3b Battery "
            "Strength, 3c Invert, 3d X Tilt, 3e Y Tilt, 3f Azimuth, 40 Altitude, 41 Twist, 42 "
            "Tip Switch, 43 Secondary Tip Switch, 44 Barrel, 45 Eraser, 46 Tablet Pick, 47 "
            "Confidence, 48 Width, 49 Height, 51 Contact, 52 Device Mode, 54 Contact Count, 55 "
            "Contact Count Maximum, 56 Scan Time, 57 Surface Switch, 58 Button Switch, 59 Pad "
            "Type, 5a Secondary Barrel Switch, 5b Transducer Serial Number");
}

TEST(UsageName, NumbersButtons) {
  EXPECT_EQ(usageName(0x09, 1), "Button 1");
  EXPECT_EQ(usageName(0x09, 65535), "Button 65535");
}

TEST(UsageName, NamesKeysByRule) {
  EXPECT_EQ(usageName(0x07, 0x04), "A");
  EXPECT_EQ(usageName(0x07, 0x1d), "Z");
  EXPECT_EQ(usageName(0x07, 0x1e), "1");
  EXPECT_EQ(usageName(0x07, 0x26), "9");
  EXPECT_EQ(usageName(0x07, 0x27), "0");
  EXPECT_EQ(usageName(0x07, 0x3a), "F1");
  EXPECT_EQ(usageName(0x07, 0x45), "F12");
  EXPECT_EQ(usageName(0x07, 0x68), "F13");
  EXPECT_EQ(usageName(0x07, 0x73), "F24");
  EXPECT_EQ(usageName(0x07, 0x59), "Keypad 1");
  EXPECT_EQ(usageName(0x07, 0x61), "Keypad 9");
  EXPECT_EQ(usageName(0x07, 0x62), "Keypad 0");
  EXPECT_EQ(usageName(0x07, 0xe1), "Left Shift");
}

TEST(UsagePageName, NamesTheCommonPages) {
  EXPECT_EQ(usagePageName(0x01), "Generic Desktop");
  EXPECT_EQ(usagePageName(0x8d), "Scale");
  EXPECT_EQ(usagePageName(0x00), "0000");
  EXPECT_EQ(usagePageName(0xfeff), "feff");
  EXPECT_EQ(usagePageName(0xff00), "vendor-defined ff00");
  EXPECT_EQ(usagePageName(0xffff), "vendor-defined ffff");
  EXPECT_EQ(usagePageName(0x10000), "00010000");
}

TEST(UsageName, FallsBackToNumbers) {
  EXPECT_EQ(usageName(0xff00, 0x21), "ff00/0021");
  EXPECT_EQ(usageName(0x01, 0), "0001/0000");
  EXPECT_EQ(usageName(0x01, 0xffff), "0001/ffff");
  EXPECT_EQ(usageName(0x12345678, 0x9abcdef0), "12345678/9abcdef0");
}

}  // namespace
}  // namespace wlhid
