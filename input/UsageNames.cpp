// SPDX-License-Identifier: Apache-2.0

#include "input/UsageNames.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace wlhid {

namespace {

struct NamedUsage {
  std::uint32_t usage;
  std::string_view name;
};

constexpr std::array kGenericDesktop = std::to_array<NamedUsage>({
    {0x01, "Pointer"},
    {0x02, "Mouse"},
    {0x04, "Joystick"},
    {0x05, "Game Pad"},
    {0x06, "Keyboard"},
    {0x07, "Keypad"},
    {0x08, "Multi-axis Controller"},
    {0x30, "X"},
    {0x31, "Y"},
    {0x32, "Z"},
    {0x33, "Rx"},
    {0x34, "Ry"},
    {0x35, "Rz"},
    {0x36, "Slider"},
    {0x37, "Dial"},
    {0x38, "Wheel"},
    {0x39, "Hat Switch"},
    {0x3a, "Counted Buffer"},
    {0x3b, "Byte Count"},
    {0x3c, "Motion Wakeup"},
    {0x3d, "Start"},
    {0x3e, "Select"},
    {0x40, "Vx"},
    {0x41, "Vy"},
    {0x42, "Vz"},
    {0x43, "Vbrx"},
    {0x44, "Vbry"},
    {0x45, "Vbrz"},
    {0x46, "Vno"},
    {0x48, "Resolution"},
    {0x80, "System Control"},
    {0x81, "Power Down"},
    {0x82, "Sleep"},
    {0x83, "Wake Up"},
    {0x90, "D-pad Up"},
    {0x91, "D-pad Down"},
    {0x92, "D-pad Right"},
    {0x93, "D-pad Left"},
});

constexpr std::array kKeyboard = std::to_array<NamedUsage>({
    {0x01, "Rollover Error"},
    {0x28, "Enter"},
    {0x29, "Escape"},
    {0x2a, "Backspace"},
    {0x2b, "Tab"},
    {0x2c, "Space"},
    {0x2d, "-"},
    {0x2e, "="},
    {0x2f, "["},
    {0x30, "]"},
    {0x31, "\\"},
    {0x32, "#"},
    {0x33, ";"},
    {0x34, "'"},
    {0x35, "`"},
    {0x36, ","},
    {0x37, "."},
    {0x38, "/"},
    {0x39, "Caps Lock"},
    {0x46, "Print Screen"},
    {0x47, "Scroll Lock"},
    {0x48, "Pause"},
    {0x49, "Insert"},
    {0x4a, "Home"},
    {0x4b, "Page Up"},
    {0x4c, "Delete"},
    {0x4d, "End"},
    {0x4e, "Page Down"},
    {0x4f, "Right"},
    {0x50, "Left"},
    {0x51, "Down"},
    {0x52, "Up"},
    {0x53, "Num Lock"},
    {0x54, "Keypad /"},
    {0x55, "Keypad *"},
    {0x56, "Keypad -"},
    {0x57, "Keypad +"},
    {0x58, "Keypad Enter"},
    {0x62, "Keypad 0"},
    {0x63, "Keypad ."},
    {0x64, "<"},
    {0x65, "Application"},
    {0xe0, "Left Control"},
    {0xe1, "Left Shift"},
    {0xe2, "Left Alt"},
    {0xe3, "Left GUI"},
    {0xe4, "Right Control"},
    {0xe5, "Right Shift"},
    {0xe6, "Right Alt"},
    {0xe7, "Right GUI"},
});

constexpr std::array kLEDs = std::to_array<NamedUsage>({
    {0x01, "Num Lock LED"},
    {0x02, "Caps Lock LED"},
    {0x03, "Scroll Lock LED"},
    {0x04, "Compose LED"},
    {0x05, "Kana LED"},
});

constexpr std::array kConsumer = std::to_array<NamedUsage>({
    {0x01, "Consumer Control"},
    {0x30, "Power"},
    {0x40, "Menu"},
    {0x6f, "Brightness Up"},
    {0x70, "Brightness Down"},
    {0xb0, "Play"},
    {0xb1, "Pause"},
    {0xb2, "Record"},
    {0xb3, "Fast Forward"},
    {0xb4, "Rewind"},
    {0xb5, "Next Track"},
    {0xb6, "Previous Track"},
    {0xb7, "Stop"},
    {0xb8, "Eject"},
    {0xcd, "Play/Pause"},
    {0xe2, "Mute"},
    {0xe9, "Volume Up"},
    {0xea, "Volume Down"},
    {0x18a, "Mail"},
    {0x192, "Calculator"},
    {0x221, "Search"},
    {0x223, "Browser Home"},
    {0x224, "Back"},
    {0x225, "Forward"},
    {0x227, "Refresh"},
    {0x22a, "Bookmarks"},
    {0x238, "AC Pan"},
});

constexpr std::array kDigitizer = std::to_array<NamedUsage>({
    {0x01, "Digitizer"},
    {0x02, "Pen"},
    {0x03, "Light Pen"},
    {0x04, "Touch Screen"},
    {0x05, "Touch Pad"},
    {0x0e, "Device Configuration"},
    {0x20, "Stylus"},
    {0x21, "Puck"},
    {0x22, "Finger"},
    {0x23, "Device Settings"},
    {0x30, "Tip Pressure"},
    {0x31, "Barrel Pressure"},
    {0x32, "In Range"},
    {0x33, "Touch"},
    {0x38, "Transducer Index"},
    {0x3b, "Battery Strength"},
    {0x3c, "Invert"},
    {0x3d, "X Tilt"},
    {0x3e, "Y Tilt"},
    {0x3f, "Azimuth"},
    {0x40, "Altitude"},
    {0x41, "Twist"},
    {0x42, "Tip Switch"},
    {0x43, "Secondary Tip Switch"},
    {0x44, "Barrel"},
    {0x45, "Eraser"},
    {0x46, "Tablet Pick"},
    {0x47, "Confidence"},
    {0x48, "Width"},
    {0x49, "Height"},
    {0x51, "Contact"},
    {0x52, "Device Mode"},
    {0x54, "Contact Count"},
    {0x55, "Contact Count Maximum"},
    {0x56, "Scan Time"},
    {0x57, "Surface Switch"},
    {0x58, "Button Switch"},
    {0x59, "Pad Type"},
    {0x5a, "Secondary Barrel Switch"},
    {0x5b, "Transducer Serial Number"},
});

constexpr std::array kPages = std::to_array<NamedUsage>({
    {0x01, "Generic Desktop"}, {0x02, "Simulation"}, {0x05, "Game"},      {0x06, "Generic Device"},
    {0x07, "Keyboard"},        {0x08, "LED"},        {0x09, "Button"},    {0x0a, "Ordinal"},
    {0x0b, "Telephony"},       {0x0c, "Consumer"},   {0x0d, "Digitizer"}, {0x0e, "Haptics"},
    {0x0f, "Physical Input"},  {0x14, "Display"},    {0x20, "Sensor"},    {0x59, "Lighting"},
    {0x84, "Power"},           {0x85, "Battery"},    {0x8c, "Bar Code"},  {0x8d, "Scale"},
});

static_assert(std::ranges::is_sorted(kPages, {}, &NamedUsage::usage));
static_assert(std::ranges::is_sorted(kGenericDesktop, {}, &NamedUsage::usage));
static_assert(std::ranges::is_sorted(kKeyboard, {}, &NamedUsage::usage));
static_assert(std::ranges::is_sorted(kLEDs, {}, &NamedUsage::usage));
static_assert(std::ranges::is_sorted(kConsumer, {}, &NamedUsage::usage));
static_assert(std::ranges::is_sorted(kDigitizer, {}, &NamedUsage::usage));

std::span<const NamedUsage> namesOfPage(std::uint32_t usagePage) {
  switch (usagePage) {
    case kGenericDesktopPage:
      return kGenericDesktop;
    case kKeyboardPage:
      return kKeyboard;
    case kLEDPage:
      return kLEDs;
    case kConsumerPage:
      return kConsumer;
    case kDigitizerPage:
      return kDigitizer;
    default:
      return {};
  }
}

void appendHexadecimal(std::string& text, std::uint32_t number) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (int shift = number > 0xffff ? 28 : 12; shift >= 0; shift -= 4)
    text += digits[(number >> shift) & 0xf];
}

/// Letters, digits and function keys are computed; empty for any other key.
std::string ruledKeyName(std::uint32_t usage) {
  if (usage >= 0x04 && usage <= 0x1d) return {static_cast<char>('A' + (usage - 0x04))};
  if (usage >= 0x1e && usage <= 0x27) return {static_cast<char>('0' + (usage - 0x1d) % 10)};
  if (usage >= 0x3a && usage <= 0x45) return "F" + std::to_string(usage - 0x39);
  if (usage >= 0x68 && usage <= 0x73) return "F" + std::to_string(usage - 0x68 + 13);
  if (usage >= 0x59 && usage <= 0x61) return "Keypad " + std::to_string(usage - 0x58);
  return {};
}

std::string_view nameIn(std::span<const NamedUsage> names, std::uint32_t number) {
  const auto found = std::ranges::lower_bound(names, number, {}, &NamedUsage::usage);
  return found != names.end() && found->usage == number ? found->name : std::string_view();
}

}  // namespace

std::string usagePageName(std::uint32_t usagePage) {
  constexpr std::uint32_t kFirstVendorPage = 0xff00;
  constexpr std::uint32_t kLastPage = 0xffff;
  if (const auto name = nameIn(kPages, usagePage); !name.empty()) return std::string(name);
  std::string number;
  appendHexadecimal(number, usagePage);
  const bool isVendors = usagePage >= kFirstVendorPage && usagePage <= kLastPage;
  return (isVendors ? "vendor-defined " : "") + number;
}

std::string usageName(std::uint32_t usagePage, std::uint32_t usage) {
  if (usagePage == kButtonPage) return "Button " + std::to_string(usage);
  if (usagePage == kKeyboardPage) {
    if (std::string key = ruledKeyName(usage); !key.empty()) return key;
  }
  if (const auto name = nameIn(namesOfPage(usagePage), usage); !name.empty())
    return std::string(name);
  std::string numbers;
  appendHexadecimal(numbers, usagePage);
  numbers += '/';
  appendHexadecimal(numbers, usage);
  return numbers;
}

}  // namespace wlhid
