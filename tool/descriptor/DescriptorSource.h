// SPDX-License-Identifier: Apache-2.0

// A device of the current root, or a report descriptor, as a person names it.
//
// Threading: the main thread.
// Errors: Failure, "FILE: cause" or what is wrong with the device; router::DeviceError and
//   router::RecordingError, which say the same.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "router/Devices.h"

namespace tool {

struct KnownDevice {
  router::DeviceDescription description;
  router::DeviceFacts facts;
};

/// The device with that name or ID (see DeviceNames.h). Its descriptor can be read without the
/// right to open it.
[[nodiscard]] KnownDevice deviceNamed(const std::string& text);

/// A report descriptor, and what else is known of its device.
struct NamedDescriptor {
  std::string name;  ///< of the device; of the file if it says none
  router::DeviceFacts facts;
};

/// `text` is a file's path, "-" for standard input, or else a device. A recording may have several
/// devices; `device` says which.
[[nodiscard]] NamedDescriptor descriptorNamed(const std::string& text, std::uint32_t device);

/// The bytes of a file: raw, or as text: two digits each, also as 0x05 or \x05, with commas, braces
/// and comments (#, //, /* */) between them. `name` is for messages.
[[nodiscard]] std::vector<std::uint8_t> descriptorBytes(std::string_view content,
                                                        const std::string& name);

}  // namespace tool
