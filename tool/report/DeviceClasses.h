// SPDX-License-Identifier: Apache-2.0

// The classes of a root's devices, which a listing of a user's root does not have.
//
// Threading: the main thread.
// Errors: a device that cannot be examined is left out.
#pragma once

#include <cstdint>
#include <map>

#include "tool/findings/Inventory.h"

namespace tool {

/// By registry entry ID. On the system's own root as the router says, otherwise from the
/// recordings' report descriptors.
[[nodiscard]] std::map<std::uint64_t, router::DeviceClass> classesOf(const Inventory& inventory);

}  // namespace tool
