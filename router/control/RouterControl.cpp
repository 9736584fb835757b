// SPDX-License-Identifier: Apache-2.0

#include "router/control/RouterControl.h"

#include <utility>

#include "router/control/ControlSession.h"

namespace router {
namespace {

RequestService::Limits controlLimits(const RouterLimits& limits) {
  return {limits.controlConnections, limits.controlConnectionsPerUser, limits.controlRequests,
          limits.controlRequestsPerUser};
}

}  // namespace

RouterControl::RouterControl(std::shared_ptr<platform::NSXPCListener> listener,
                             const ServiceParts& parts)
    : RequestService(std::move(listener), parts, controlLimits(parts.limits)) {}

std::shared_ptr<RequestSession> RouterControl::sessionFor(RequestPeer peer) {
  const auto connection = peer.connection;
  auto session = std::make_shared<ControlSession>(std::move(peer));
  connection->setExportedInterface(
      platform::NSXPCInterface::interfaceWithProtocol(RouterControlProtocol::protocol()));
  connection->setExportedObject<RouterControlProtocol>(session);
  return session;
}

}  // namespace router
