// SPDX-License-Identifier: Apache-2.0

// A device's input, taken from everybody else on this computer.
//
// The kernel makes input events of what most HID devices report, and the desktop gets these whether
// or not somebody reads the reports. As long as this object lives, the events of the device's input
// nodes go nowhere. The reports are not affected, neither for the router nor for another program
// that reads the hidraw node.
//
// Nodes that appear later are not taken.
//
// Threading: one thread at a time.
// Ownership: the kernel gives the input back when the object is destroyed, or the process ends.
// Errors: DeviceError that names the node; nothing is taken then. Its code is
//   device_or_resource_busy if another program has taken it.
#pragma once

#include <vector>

#include "router/hidraw/HidrawSystem.h"

namespace router {

class ExclusiveInput {
 public:
  /// Takes all input nodes of the HID device `hid`; there may be none.
  ExclusiveInput(const HidrawSystem& system, const SystemDevice& hid);

 private:
  std::vector<platform::FileDescriptor> nodes_;
};

}  // namespace router
