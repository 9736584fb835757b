// SPDX-License-Identifier: Apache-2.0

// The description of an error without user info.
#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/NSError.h"

namespace testsupport {

inline std::string errorText(std::string_view domain, std::int64_t code) {
  return platform::NSError::errorWithDomain_code_userInfo(platform::str(domain), code, nullptr)
      ->description();
}

}  // namespace testsupport
