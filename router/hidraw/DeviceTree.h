// SPDX-License-Identifier: Apache-2.0

// The computer's devices as the kernel and udev describe them, as far as the router needs it.
//
// What it says about a device may come from the device itself (its name, its serial number), and a
// device can be removed at any time, between any two calls.
//
// Threading: any thread.
// Errors: DeviceError if the devices cannot be listed at all. What is not there, no longer there or
//   unreadable is missing from the answer.
// Order: lists are in the order of their paths.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "router/Devices.h"

namespace router {

struct SystemDevice {
  std::string path;            ///< in sysfs, without links; its own as long as the device exists
  std::string name;            ///< the last part of the path
  std::string subsystem;       ///< "hidraw", "hid", "input", "usb", …
  std::string type;            ///< "usb_interface", …; empty in most subsystems
  std::string node;            ///< "/dev/hidraw0"; empty if it has none
  dev_t number = 0;            ///< of the node
  bool isInitialized = false;  ///< whether udev has recorded it, having applied its rules
  /// Since it was recorded for the first time. What the rules start (setfacl) runs only then.
  std::chrono::microseconds age{0};
  std::map<std::string, std::string> properties;
};

class DeviceTree {
 public:
  virtual ~DeviceTree() = default;
  /// Those that udev has recorded.
  [[nodiscard]] virtual std::vector<SystemDevice> initialized(
      const std::string& subsystem) const = 0;
  /// Those below a path, at any depth, whether or not their rules have run.
  [[nodiscard]] virtual std::vector<SystemDevice> below(const std::string& path,
                                                        const std::string& subsystem) const = 0;
  [[nodiscard]] virtual std::optional<SystemDevice> parentOf(const std::string& path) const = 0;
  /// The nearest one above; `type` may be empty.
  [[nodiscard]] virtual std::optional<SystemDevice> ancestorOf(const std::string& path,
                                                               const std::string& subsystem,
                                                               const std::string& type) const = 0;
  /// The one that a character device's number belongs to at this moment.
  [[nodiscard]] virtual std::optional<SystemDevice> withNumber(dev_t number) const = 0;
  /// A line of text in sysfs.
  [[nodiscard]] virtual std::optional<std::string> attribute(const std::string& path,
                                                             const std::string& name) const = 0;
  /// Of a device of the subsystem "hid". Never empty.
  [[nodiscard]] virtual std::optional<std::vector<std::uint8_t>> reportDescriptor(
      const std::string& path) const = 0;
  /// Notices when devices come, go and change that matter to the router. Null if that is not
  /// possible.
  [[nodiscard]] virtual std::unique_ptr<DeviceWatch> watch() const { return nullptr; }
};

}  // namespace router
