// SPDX-License-Identifier: Apache-2.0

// The names of HID usages, for people.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

inline constexpr std::uint32_t kGenericDesktopPage = 0x01;
inline constexpr std::uint32_t kKeyboardPage = 0x07;
inline constexpr std::uint32_t kLEDPage = 0x08;
inline constexpr std::uint32_t kButtonPage = 0x09;
inline constexpr std::uint32_t kConsumerPage = 0x0c;
inline constexpr std::uint32_t kDigitizerPage = 0x0d;

/// "X", "Button 3", "Left Shift"; "ff00/0021" (page and usage in hexadecimal) if it has no common
/// name.
[[nodiscard]] std::string usageName(std::uint32_t usagePage, std::uint32_t usage);
/// "Generic Desktop", "vendor-defined ff00"; "00f0" if it has no common name.
[[nodiscard]] std::string usagePageName(std::uint32_t usagePage);

}  // namespace tool
