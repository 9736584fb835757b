// SPDX-License-Identifier: Apache-2.0

// A device as wlhid devices --json shows it: with what tells it from others of its kind, which a
// diagnostic report leaves out.
//
// Threading: any thread.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "router/Devices.h"

namespace tool {

[[nodiscard]] nlohmann::ordered_json wholeJsonOf(const router::DeviceDescription& device);

}  // namespace tool
