// SPDX-License-Identifier: Apache-2.0

// Devices and filters in the form in which they cross the connection to the device directory.
//
// Threading: any thread.
// Errors: what another router may have written differently is left out; a class that is not known
// is
//   the worse one.
#pragma once

#include <memory>
#include <vector>

#include "WLHIDAccess/InputDevices.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"

namespace wlhid {

[[nodiscard]] Device deviceIn(const platform::NSDictionary& dictionary);
[[nodiscard]] std::vector<Device> devicesIn(const platform::NSArray& array);
/// Null if there are none.
[[nodiscard]] std::shared_ptr<platform::NSArray> arrayOf(const std::vector<Criterion>& criteria);

}  // namespace wlhid
