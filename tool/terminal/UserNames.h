// SPDX-License-Identifier: Apache-2.0

// Users as a person calls them.
//
// Threading: any thread.
#pragma once

#include <sys/types.h>

#include <string>

namespace tool {

/// The user's name, printable, or the number of one without a name.
[[nodiscard]] std::string nameOfUser(uid_t user);
/// The user with that name or number. Throws Failure if there is none.
[[nodiscard]] uid_t userNamed(const std::string& name);

}  // namespace tool
