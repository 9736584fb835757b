// SPDX-License-Identifier: Apache-2.0

// What the versions that were read mean.
//
// Threading: any thread.
#pragma once

#include "WLHIDAccess/InputRouter.h"
#include "input/RouterVersions.h"

namespace wlhid {

[[nodiscard]] Presence presenceOf(const RouterVersions& versions);

}  // namespace wlhid
