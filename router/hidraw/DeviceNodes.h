// SPDX-License-Identifier: Apache-2.0

// The calls on device nodes that the router makes, and no others: it never writes to a device.
//
// Threading: any thread.
// Ownership: an opened node belongs to the caller.
// Errors: std::system_error with the kernel's code.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/services/FileDescriptor.h"

namespace router {

class DeviceNodes {
 public:
  virtual ~DeviceNodes() = default;
  /// Opens "/dev/NAME" for reading, without blocking and without following a symbolic link.
  [[nodiscard]] virtual platform::FileDescriptor open(const std::string& node) const = 0;
  /// Whether this process may open it for reading, without opening it, which can wake a device.
  /// Does not throw.
  [[nodiscard]] virtual bool mayRead(const std::string& node) const = 0;
  /// Which device was opened; nothing if it is no character device.
  [[nodiscard]] virtual std::optional<dev_t> numberOf(int descriptor) const = 0;
  /// Of an open hidraw node.
  [[nodiscard]] virtual std::vector<std::uint8_t> reportDescriptor(int descriptor) const = 0;
  /// Takes the events of an open input node for this descriptor alone, until it is closed.
  virtual void grab(int descriptor) const = 0;
  /// Like read(2), but returns a negative error number.
  [[nodiscard]] virtual ssize_t read(int descriptor, std::span<std::uint8_t> buffer) const = 0;
};

}  // namespace router
