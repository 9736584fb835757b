// SPDX-License-Identifier: Apache-2.0

// Serves the router's control service (router/control/ControlProtocol.h).
#pragma once

#include <memory>

#include "router/requests/RequestService.h"

namespace router {

class RouterControl final : public RequestService {
 public:
  RouterControl(std::shared_ptr<platform::NSXPCListener> listener, const ServiceParts& parts);

 private:
  std::shared_ptr<RequestSession> sessionFor(RequestPeer peer) override;
};

}  // namespace router
