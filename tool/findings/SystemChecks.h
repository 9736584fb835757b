// SPDX-License-Identifier: Apache-2.0

// The checks that only the system's own root needs. Each remedy works for the user who reads it:
// systemctl has polkit ask for an administrator's password, and what needs the superuser says so.
//
// Threading: any thread.
// Order: that in which routing needs them.
#pragma once

#include <vector>

#include "tool/findings/Check.h"
#include "tool/findings/Inventory.h"

namespace tool {

/// The directories that jobs and helpers are used from.
[[nodiscard]] std::vector<Check> systemPlaceChecks(const Inventory& inventory);
/// Without a job.
[[nodiscard]] Check systemJobCheck(const Inventory& inventory);
/// Of a router that could not be asked.
[[nodiscard]] Check unaskedRouterCheck(const SystemFindings& system);
/// The sockets, the job daemon, polkit, the caller's session and devices, and the log.
[[nodiscard]] std::vector<Check> systemChecks(const Inventory& inventory);

}  // namespace tool
