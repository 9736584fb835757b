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
    {Evidence::Administrator, "decided by the administrator"},
    {Evidence::UnreadableDescriptor, "its report descriptor cannot be read"},
    {Evidence::Usages, "a keyboard", kKeyboard, "Keyboard", true},
    {Evidence::Usages, "a keypad", kKeypad, "Keypad", true},
    {Evidence::Usages, "keys", kKeys, {}, true},
    {Evidence::Usages, "a mouse", kMouse, "Mouse"},
    // The sticks of a gamepad commonly lie in a physical collection Pointer.
    {Evidence::Usages, "a pointer", kPointer, "Pointer", false, true},
    {Evidence::Usages, "system controls", kSystemControl, "System Control"},
    {Evidence::Usages, "a control of the system", kControlsOfTheSystem},
    {Evidence::Usages, "a security key", kSecurityKey},
    {Evidence::BootKeyboard, "a keyboard in the boot protocol"},
    {Evidence::KeyboardNode, "used by the system as a keyboard"},
    // Receivers carry the keys of what is paired with them there.
    {Evidence::UsagesBesideKeyboard, "a vendor's own format beside a keyboard", kVendorPages},
    {Evidence::Usages, "a usage page without a meaning", kUnassignedPages},
    {Evidence::NothingToJudge, "nothing that could be judged"},
};

}  // namespace

std::span<const ClassRule> classRules() {
  return kRules;
}

const ClassRule& classRule(Evidence evidence) {
  return *std::ranges::find(kRules, evidence, &ClassRule::evidence);
}

}  // namespace router
