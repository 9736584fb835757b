// SPDX-License-Identifier: Apache-2.0

// What is known of a HID device that tells how much it can reveal (router/policy/DeviceClass.h).
//
// A fact that cannot be found out is taken as the worse case: an interface whose class cannot be
// read is a keyboard, and so is an input node whose rules have not run yet.
//
// The administrator decides with a udev rule for the hidraw device itself:
//   SUBSYSTEM=="hidraw", ATTRS{idVendor}=="28bd", ENV{WLHID_CLASS}="ordinary"
// It is not looked for anywhere else, because the properties of the HID device above it contain
// texts of the device's own.
//
// Threading: any thread.
// Errors: DeviceError as in DeviceTree.h.
#pragma once

#include <optional>
#include <string>

#include "router/hidraw/DeviceTree.h"
#include "router/policy/DeviceClass.h"

namespace router {

/// `hid` is the HID device above `hidraw`. Nothing if its report descriptor cannot be read.
[[nodiscard]] std::optional<DeviceFacts> factsOf(const DeviceTree& tree, const SystemDevice& hid,
                                                 const SystemDevice& hidraw);

/// The administrator's decision. `returnProblem` is set if there is one that means nothing.
[[nodiscard]] std::optional<DeviceClass> decidedClassOf(const SystemDevice& hidraw,
                                                        std::string* returnProblem);

/// Whether a path is that of a device below another one.
[[nodiscard]] bool isBelow(const std::string& path, const std::string& above);

}  // namespace router
