// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSLog.h"

#include "platform/foundation/FoundationProvider.h"

namespace platform {

void NSLogString(std::string_view text) {
  foundationProvider().load()->log(text);
}

}  // namespace platform
