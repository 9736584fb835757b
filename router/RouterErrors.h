// The errors with which the router answers a start request: domain HIDEventRouterDomain, IOReturn
// codes, a localized description and, where it concerns one, the device as a KQIOObject under
// WLHIDDeviceKey.
//
// Threading: any thread.
// Ownership: the caller's.
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
  Underrun = -536870169,         ///< 0xE00002E7: a recording has been played to its end
  Aborted = -536870165,          ///< 0xE00002EB: the client gave the request up while it waited
};

inline constexpr std::string_view WLHIDDeviceKey = "WLHIDDevice";

[[nodiscard]] std::shared_ptr<platform::NSError> routerError(IOReturn code,
                                                             std::string_view description);
[[nodiscard]] std::shared_ptr<platform::NSError> routerError(IOReturn code,
                                                             std::string_view description,
                                                             std::uint64_t registryEntryID);
/// What a refusal of the system is called: NotPermitted where rights are missing, else IOError.
[[nodiscard]] IOReturn ioReturnOf(const std::error_code& code);
/// Whether a router says so that its client has heard a recording to its end.
[[nodiscard]] bool isEndOfRecording(const platform::NSError& error);

}  // namespace router
