#include "tool/UsageNames.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

TEST(UsageName, NamesTheCommonUsages) {
  EXPECT_EQ(usageName(0x01, 0x30), "X");
  EXPECT_EQ(usageName(0x01, 0x31), "Y");
  EXPECT_EQ(usageName(0x01, 0x38), "Wheel");
  EXPECT_EQ(usageName(0x01, 0x93), "D-pad Left");
  EXPECT_EQ(usageName(0x0c, 0xe9), "Volume Up");
  EXPECT_EQ(usageName(0x0d, 0x42), "Tip Switch");
  EXPECT_EQ(usageName(0x08, 0x02), "Caps Lock LED");
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

TEST(UsageName, FallsBackToNumbers) {
  EXPECT_EQ(usageName(0xff00, 0x21), "ff00/0021");
  EXPECT_EQ(usageName(0x01, 0), "0001/0000");
  EXPECT_EQ(usageName(0x01, 0xffff), "0001/ffff");
  EXPECT_EQ(usageName(0x12345678, 0x9abcdef0), "12345678/9abcdef0");
}

}  // namespace
}  // namespace tool
