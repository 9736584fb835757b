// SPDX-License-Identifier: Apache-2.0

// The pages whose usages have names; the names themselves are in WLHIDAccess/InputWords.h.
#pragma once

#include "WLHIDAccess/InputWords.h"

namespace wlhid {

inline constexpr std::uint32_t kGenericDesktopPage = 0x01;
inline constexpr std::uint32_t kKeyboardPage = 0x07;
inline constexpr std::uint32_t kLEDPage = 0x08;
inline constexpr std::uint32_t kButtonPage = 0x09;
inline constexpr std::uint32_t kConsumerPage = 0x0c;
inline constexpr std::uint32_t kDigitizerPage = 0x0d;

/// "Generic Desktop", "vendor-defined ff00"; "00f0" if it has no common name.
[[nodiscard]] std::string usagePageName(std::uint32_t usagePage);

}  // namespace wlhid
