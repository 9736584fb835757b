// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/InputWords.h"

namespace wlhid {

namespace {

std::string domainOf(const std::shared_ptr<platform::NSError>& error) {
  return error != nullptr && error->domain() != nullptr ? error->domain()->UTF8String()
                                                        : std::string();
}

std::string wordsOf(const std::shared_ptr<platform::NSError>& error) {
  return error == nullptr ? std::string("No reason was given.")
                          : error->localizedDescription()->UTF8String();
}

}  // namespace

Error::Error(const std::shared_ptr<platform::NSError>& error)
    : Error(domainOf(error), error == nullptr ? 0 : error->code(), wordsOf(error)) {}

std::string statusName(WLHIDEventRouterClientStatus status) {
  switch (status) {
    case WLHIDEventRouterClientStatusIdle:
      return "idle";
    case WLHIDEventRouterClientStatusRouterUnavailable:
      return "router not installed";
    case WLHIDEventRouterClientStatusOpening:
      return "opening";
    case WLHIDEventRouterClientStatusFailed:
      return "failed";
    case WLHIDEventRouterClientStatusRouting:
      return "routing";
  }
  return "status " + std::to_string(static_cast<std::uint64_t>(status));
}

}  // namespace wlhid
