// SPDX-License-Identifier: Apache-2.0

// What the versions of the routers that are there mean for installing one.
//
// Threading: any thread.
#pragma once

#include <string>
#include <vector>

#include "input/RouterVersions.h"

namespace tool {

using wlhid::CopyState;
using wlhid::readRouterVersions;
using wlhid::RouterCopy;
using wlhid::RouterVersions;

/// Whether installing would replace a newer version with an older one.
[[nodiscard]] bool isDowngrade(const RouterVersions& versions);
/// The arguments that make this command install its own copy.
[[nodiscard]] std::vector<std::string> installArguments(const RouterVersions& versions);

}  // namespace tool
