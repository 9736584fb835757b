// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/XPCProtocol.h"

#include <stdexcept>
#include <string>

namespace platform {

std::size_t XPCProtocol::indexOfSelector(std::string_view selector) const {
  for (std::size_t i = 0; i < methods.size(); ++i) {
    if (methods[i].selector == selector) return i;
  }
  throw std::invalid_argument(std::string(name) + " has no selector " + std::string(selector));
}

}  // namespace platform
