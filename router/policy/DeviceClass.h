// SPDX-License-Identifier: Apache-2.0

// Whether the input of a device can be secret.
//
// A device is sensitive if it can carry keys, credentials or the system's controls, or if nothing
// is known of what it carries; the rules are in ClassRules.h. All others are ordinary. A sensitive
// device may also have harmless reports: those are listed, so that they can be delivered without
// the rest.
//
// Threading: any thread.
// Errors: none. A report descriptor that cannot be read makes the device sensitive.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace router {

enum class DeviceClass { Ordinary, Sensitive };

/// What is known of a device besides its report descriptor. From udev; unknown is the worse case.
struct DeviceFacts {
  std::vector<std::uint8_t> reportDescriptor;
  bool isBootKeyboard = false;  ///< USB boot protocol, keyboard
  /// A sibling input node that udev calls a keyboard (ID_INPUT_KEYBOARD or ID_INPUT_KEY).
  bool hasKeyboardNode = false;
  bool isBesideKeyboard = false;  ///< another interface of the same physical device is a keyboard
  std::optional<DeviceClass> decided;  ///< the administrator's, from the udev property WLHID_CLASS
};

struct Classification {
  DeviceClass deviceClass = DeviceClass::Sensitive;
  std::string reason;  ///< the rule that decided and where it matched, for people
  /// On a sensitive device that mixes both: the report IDs without a sensitive usage.
  std::set<std::uint8_t> ordinaryReports;
};

[[nodiscard]] Classification classify(const DeviceFacts& facts);

}  // namespace router
