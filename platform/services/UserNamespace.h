// SPDX-License-Identifier: Apache-2.0

// Sandboxes: what a process sees of users who are not mapped into its user namespace.
//
// The kernel shows all of them, the system's root included, as one "overflow" user. What belongs to
// that user was put into the sandbox by whoever built it; nobody inside can act as it.
//
// Threading: any thread.
// Errors: what cannot be read counts as mapped, so that nobody is trusted by mistake.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>

namespace platform {

/// The number as which everybody outside this process's user namespace appears. Nothing if it is
/// that of somebody inside, as it is in the system's own namespace.
[[nodiscard]] std::optional<uid_t> userOutside();
/// The same, given the number of the overflow user and a process's uid_map.
[[nodiscard]] std::optional<uid_t> userOutside(uid_t overflow, std::string_view map);

}  // namespace platform
