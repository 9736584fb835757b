// SPDX-License-Identifier: Apache-2.0

#include "router/policy/ClassRules.h"

#include <algorithm>

namespace router {

namespace {

constexpr UsageRange single(std::uint32_t usage) {
  return {usage, usage};
}

constexpr UsageRange kKeyboard[] = {single(0x00010006)};
constexpr UsageRange kKeypad[] = {single(0x00010007)};
constexpr UsageRange kKeys[] = {{0x00070000, 0x0007ffff}};
constexpr UsageRange kMouse[] = {single(0x00010002)};
constexpr UsageRange kPointer[] = {single(0x00010001)};
constexpr UsageRange kSystemControl[] = {single(0x00010080)};
// The published HID usage tables (1.7) give 81 to B7 to the system: power, menus, restart, function
// shift, notifications, docking, breaks, sound, displays. Of these, 90 to 96 are no controls of the
// system but parts of game controllers: a directional pad, two triggers and a thumbstick.
// Unassigned numbers in between count.
constexpr UsageRange kControlsOfTheSystem[] = {{0x00010081, 0x0001008f}, {0x00010097, 0x000100b7}};
constexpr UsageRange kSecurityKey[] = {{0xf1d00000, 0xf1d0ffff}};
constexpr UsageRange kVendorPages[] = {{0xff000000, 0xffffffff}};
// The pages that the same tables leave out, and page 0.
constexpr UsageRange kUnassignedPages[] = {
    {0x00000000, 0x0000ffff}, {0x00130000, 0x0013ffff}, {0x00150000, 0x001fffff},
    {0x00210000, 0x003fffff}, {0x00420000, 0x0058ffff}, {0x005a0000, 0x007fffff},
    {0x00830000, 0x0083ffff}, {0x00860000, 0x008bffff}, {0x008f0000, 0x008fffff},
    {0x00930000, 0xf1cfffff}, {0xf1d10000, 0xfeffffff}};

constexpr ClassRule kRules[] = {
    {"decided by the administrator", {}, {}, Evidence::Administrator},
    {"its report descriptor cannot be read", {}, {}, Evidence::UnreadableDescriptor},
    {"a keyboard", kKeyboard, "Keyboard", Evidence::Usages, true},
    {"a keypad", kKeypad, "Keypad", Evidence::Usages, true},
    {"keys", kKeys, {}, Evidence::Usages, true},
    {"a mouse", kMouse, "Mouse"},
    // The sticks of a gamepad commonly lie in a physical collection Pointer.
    {"a pointer", kPointer, "Pointer", Evidence::Usages, false, true},
    {"system controls", kSystemControl, "System Control"},
    {"a control of the system", kControlsOfTheSystem},
    {"a security key", kSecurityKey},
    {"a keyboard in the boot protocol", {}, {}, Evidence::BootKeyboard},
    {"used by the system as a keyboard", {}, {}, Evidence::KeyboardNode},
    // Receivers carry the keys of what is paired with them there.
    {"a vendor's own format beside a keyboard", kVendorPages, {}, Evidence::UsagesBesideKeyboard},
    {"a usage page without a meaning", kUnassignedPages},
    {"nothing that could be judged", {}, {}, Evidence::NothingToJudge},
};

}  // namespace

std::span<const ClassRule> classRules() {
  return kRules;
}

const ClassRule& classRule(Evidence evidence) {
  return *std::ranges::find(kRules, evidence, &ClassRule::evidence);
}

}  // namespace router
