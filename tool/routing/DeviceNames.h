// SPDX-License-Identifier: Apache-2.0

// Which device a person means.
//
// A name takes precedence over an ID, so that a device named "12" can be selected; "id:12" and
// "name:12" say explicitly which is meant.
//
// Threading: the main thread.
// Errors: Failure if no device matches, or more than one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// For the help of verbs that take a DEVICE.
inline constexpr const char* kDeviceHelp =
    "A device's name, if unique, or its registry entry ID (decimal\nor 0x…). id:12 and name:12 are "
    "never ambiguous";

/// For the help of verbs that take a recording.
inline constexpr const char* kDeviceNumberHelp =
    "Which device of a recording of several (default 0)";

/// A device as typed: its possible name and its possible ID.
struct DeviceReference {
  std::optional<std::string> name;
  std::optional<std::uint64_t> registryEntryID;

  static DeviceReference parse(const std::string& text);
};

/// The ID of the current root's device with that name; otherwise the typed ID, which is not
/// checked: the router says whether such a device exists.
[[nodiscard]] std::uint64_t registryEntryIDOf(const std::string& text);

/// The configuration of a replayed device of the current root: that of the device with that name,
/// even if it yields no device; otherwise the configuration with that name; otherwise that of the
/// device with that ID.
[[nodiscard]] std::string configurationOf(const std::string& text);

}  // namespace tool
