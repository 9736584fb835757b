// SPDX-License-Identifier: Apache-2.0

// How much a device can reveal about its user.
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
  bool isBootKeyboard = false;    ///< USB boot protocol, keyboard
  bool hasKeyboardNode = false;   ///< a sibling input node that udev calls a keyboard
                                  ///< (ID_INPUT_KEYBOARD or ID_INPUT_KEY)
  bool isBesideKeyboard = false;  ///< another interface of the same physical device is a keyboard
  std::optional<DeviceClass> decided;  ///< the administrator's, from the udev property WLHID_CLASS
};

struct Classification {
  DeviceClass deviceClass = DeviceClass::Sensitive;
  std::string reason;  ///< the rule that decided and where it matched, for people
  std::set<std::uint8_t> ordinaryReports;  ///< on a sensitive device that mixes both: the report
                                           ///< IDs without a sensitive usage
};

[[nodiscard]] Classification classify(const DeviceFacts& facts);

}  // namespace router
