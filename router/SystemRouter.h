// SPDX-License-Identifier: Apache-2.0

// The router of the system's own root: the kernel's devices, an authority that decides who may have
// them, and the journal.
//
// Threading: one thread, once a process.
// Ownership: what the authority asks lives as long as the process, because answers may come until
//   its end.
// Errors: ServiceError, std::system_error.
#pragma once

#include "platform/services/SystemRoot.h"
#include "router/Router.h"

namespace router {

/// `root` must be open.
[[nodiscard]] RouterOptions systemRouterOptions(const platform::SystemRoot& root);

}  // namespace router
