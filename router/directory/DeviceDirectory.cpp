// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DeviceDirectory.h"

#include <utility>

#include "router/directory/DescribedDevices.h"
#include "router/directory/DirectorySession.h"

namespace router {
namespace {

using platform::NSXPCInterface;

RequestService::Limits directoryLimits(const RouterLimits& limits) {
  return {limits.directoryConnections, limits.directoryConnectionsPerUser, limits.directoryRequests,
          limits.directoryRequestsPerUser};
}

std::shared_ptr<DeviceMonitor> monitorOf(const ServiceParts& parts) {
  DeviceMonitor::Sources sources;
  sources.list = [devices = parts.devices, authority = parts.authority] {
    return describedDevices(*devices, authority.get());
  };
  sources.watches = [devices = parts.devices] { return devices->watches(); };
  return std::make_shared<DeviceMonitor>(std::move(sources), parts.limits);
}

}  // namespace

DeviceDirectory::DeviceDirectory(std::shared_ptr<platform::NSXPCListener> listener,
                                 const ServiceParts& parts)
    : RequestService(std::move(listener), parts, directoryLimits(parts.limits)),
      monitor_(monitorOf(parts)) {}

std::shared_ptr<RequestSession> DeviceDirectory::sessionFor(RequestPeer peer) {
  const auto connection = peer.connection;
  auto session = std::make_shared<DirectorySession>(std::move(peer), monitor_);
  connection->setExportedInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDDeviceDirectoryProtocol::protocol()));
  connection->setExportedObject<WLHIDDeviceDirectoryProtocol>(session);
  connection->setRemoteObjectInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDDeviceDirectoryClientProtocol::protocol()));
  return session;
}

}  // namespace router
