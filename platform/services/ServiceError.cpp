// SPDX-License-Identifier: Apache-2.0

#include "platform/services/ServiceError.h"

#include <system_error>

namespace platform {

std::string errorText(int error) {
  return std::generic_category().message(error);
}

ServiceError fileSystemError(const std::string& what, int error) {
  return {ServiceErrorCode::FileSystem, what + ": " + errorText(error), error};
}

}  // namespace platform
