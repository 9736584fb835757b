// Which device a person means.
//
// A name wins over an ID, so that a device that is called "12" can be said; "id:12" and "name:12"
// say which of the two is meant, whatever there is.
//
// Threading: the main thread.
// Errors: Failure where no device, or more than one, fits.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// For the help of a verb that takes a DEVICE.
inline constexpr const char* kDeviceHelp =
    "A name that only one device has, or a registry entry ID\n(decimal or 0x…). id:12 and name:12 "
    "say which of both is meant";

/// A device as it was typed: what it may be called, and what its ID may be.
struct DeviceReference {
  std::optional<std::string> name;
  std::optional<std::uint64_t> registryEntryID;

  static DeviceReference parse(const std::string& text);
};

/// The device of the current root with that name; else the ID as it is: whether there is such a
/// device is the router's answer.
[[nodiscard]] std::uint64_t registryEntryIDOf(const std::string& text);

/// The configuration of a replayed device of the current root: that of the device with that name,
/// also where no device comes of it; else the one of that name itself; else that of the device with
/// that ID.
[[nodiscard]] std::string configurationOf(const std::string& text);

}  // namespace tool
