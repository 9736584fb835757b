// SPDX-License-Identifier: Apache-2.0

// The errors that the router returns for a start request: domain HIDEventRouterDomain, IOReturn
// codes, a localized description and, if it concerns a device, that device as a KQIOObject under
// WLHIDDeviceKey.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <system_error>

#include "platform/foundation/NSError.h"

namespace router {

/// IOReturn codes, sign-extended to 64 bits.
enum class IOReturn : std::int64_t {
  NoDevice = -536870208,         ///< 0xE00002C0
  BadArgument = -536870206,      ///< 0xE00002C2
  ExclusiveAccess = -536870203,  ///< 0xE00002C5
  IOError = -536870198,          ///< 0xE00002CA
  Busy = -536870187,             ///< 0xE00002D5: too many requests
  NotPermitted = -536870174,     ///< 0xE00002E2
  Underrun = -536870169,         ///< 0xE00002E7: the recording has been played to its end
  Aborted = -536870165,          ///< 0xE00002EB: the client gave up the request while it waited
};

inline constexpr std::string_view WLHIDDeviceKey = "WLHIDDevice";

[[nodiscard]] std::shared_ptr<platform::NSError> routerError(IOReturn code,
                                                             std::string_view description);
[[nodiscard]] std::shared_ptr<platform::NSError> routerError(IOReturn code,
                                                             std::string_view description,
                                                             std::uint64_t registryEntryID);
/// The code for a system error: NotPermitted if permissions are missing, ExclusiveAccess if another
/// program has taken the device, NoDevice if it is no longer there, otherwise IOError.
[[nodiscard]] IOReturn ioReturnOf(const std::error_code& code);
/// Whether this is the router's error for a client that has received a recording to its end.
[[nodiscard]] bool isEndOfRecording(const platform::NSError& error);

}  // namespace router
