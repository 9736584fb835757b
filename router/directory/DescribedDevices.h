// SPDX-License-Identifier: Apache-2.0

// Every device with its class and its top-level collections, as the device directory tells them.
//
// A device may go while it is being described. Without its descriptor it would be told as one that
// has changed, or has come, a moment before it is told as gone.
#pragma once

#include <vector>

#include "router/RoutedDevices.h"
#include "router/control/DeviceListing.h"
#include "router/policy/RoutingAuthority.h"

namespace router {

/// One whose descriptor cannot be read although it stays there has no collections. `authority` may
/// be null (see classified()). Throws what a source throws that cannot list.
[[nodiscard]] std::vector<ListedDevice> describedDevices(RoutedDevices& devices,
                                                         const RoutingAuthority* authority);

}  // namespace router
