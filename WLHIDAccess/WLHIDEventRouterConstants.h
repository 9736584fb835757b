// SPDX-License-Identifier: Apache-2.0

// The router's name, and the errors that an application may want to distinguish.
#pragma once

#include <cstdint>
#include <string_view>

/// The router's launchd label, Mach service name and file name inside the application bundle.
inline constexpr std::string_view WLHIDEventRouterLabel = "com.quillmar.hideventrouter";
/// The domain of the client's own error (code −1: the router is not installed) and of the router's
/// errors (IOReturn codes).
inline constexpr std::string_view HIDEventRouterDomain = "HIDEventRouterDomain";
/// kIOReturnNotPermitted, 0xE00002E2, sign-extended: the system denies the router access to the
/// device.
inline constexpr std::int64_t WLHIDEventRouterNotPermitted = -536870174;
