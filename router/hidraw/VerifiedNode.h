// SPDX-License-Identifier: Apache-2.0

// Opening a device's node, and making sure that it is the node of that device.
//
// Between the moment in which a device is listed and the one in which its node is opened, it can be
// removed, and its name and its number go to the next one. So what was opened is looked up again:
// it must be a character device with the number that was listed, and that number must still lead to
// the same HID device, whose name is never used again.
//
// Threading: any thread.
// Ownership: the node belongs to the caller.
// Errors: DeviceError: with the code no_such_device if the device is no longer there; without one
//   if the node is not that device's; with the kernel's code if it cannot be opened.
#pragma once

#include "router/Devices.h"
#include "router/hidraw/HidrawSystem.h"

namespace router {

/// `device` is a hidraw or input device below the HID device `hid`.
[[nodiscard]] platform::FileDescriptor openVerified(const HidrawSystem& system,
                                                    const SystemDevice& device,
                                                    const SystemDevice& hid);

/// For a device that is no longer there.
[[nodiscard]] DeviceError noLongerThere(const std::string& node);

}  // namespace router
