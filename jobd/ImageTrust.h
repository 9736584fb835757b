// SPDX-License-Identifier: Apache-2.0

// Whose helpers may be installed for all users of the system.
//
// The administrator decides with the keys in /etc/wlhid/trusted.d: while it holds none, any helper
// that its installer has the right to install; once it holds one, none that cannot be verified.
//
// Threading: any thread.
// Errors: the check throws ServiceError (InvalidImage) for an image that may not be installed, and
//   one that names the cause if the keys cannot be read.
#pragma once

#include "jobd/HelperInstaller.h"
#include "platform/services/SystemRoot.h"

namespace jobd {

/// Reads the keys anew each time.
[[nodiscard]] ImageCheck trustByKeys(const platform::SystemRoot& root);

}  // namespace jobd
