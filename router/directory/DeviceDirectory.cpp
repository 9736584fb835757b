// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DeviceDirectory.h"

#include <utility>

#include "router/ApplicationCollections.h"
#include "router/control/DeviceInquiry.h"
#include "router/directory/DirectorySession.h"

namespace router {
namespace {

using platform::NSXPCInterface;

platform::NSXPCListenerLimits directoryLimits(const RouterLimits& limits) {
  platform::NSXPCListenerLimits result;
  result.connections = limits.directoryConnections;
  result.connectionsOfUser = limits.directoryConnectionsPerUser;
  result.withoutHelloOfUser = limits.directoryConnectionsPerUser;
  return result;
}

std::shared_ptr<DeviceMonitor> monitorOf(const ControlParts& parts) {
  DeviceMonitor::Sources sources;
  sources.list = [devices = parts.devices, authority = parts.authority] {
    auto listed = classified(authority.get(), devices->list());
    for (ListedDevice& each : listed) {
      const auto descriptor = devices->reportDescriptorOf(each.device.registryEntryID);
      if (descriptor) each.collections = applicationCollections(*descriptor);
    }
    return listed;
  };
  sources.watches = [devices = parts.devices] { return devices->watches(); };
  return std::make_shared<DeviceMonitor>(std::move(sources), parts.limits);
}

}  // namespace

DeviceDirectory::DeviceDirectory(std::shared_ptr<platform::NSXPCListener> listener,
                                 ControlParts parts)
    : listener_(std::move(listener)),
      parts_(std::make_shared<const ControlParts>(std::move(parts))),
      requests_(std::make_shared<TurnQuota>(parts_->limits.directoryRequestsPerUser,
                                            parts_->limits.directoryRequests,
                                            std::chrono::milliseconds(0))),
      monitor_(monitorOf(*parts_)) {}

void DeviceDirectory::resume() {
  listener_->setDelegate(std::weak_ptr<platform::NSXPCListenerDelegate>(shared_from_this()));
  listener_->setLimits(directoryLimits(parts_->limits));
  listener_->resume();
}

void DeviceDirectory::stop() {
  listener_->invalidate();
  std::set<std::shared_ptr<DirectorySession>> left;
  {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    left = sessions_;
  }
  monitor_->stop();
  for (const auto& session : left) session->sayFarewell();
}

bool DeviceDirectory::listener_shouldAcceptNewConnection(
    const std::shared_ptr<platform::NSXPCListener>& /*listener*/,
    const std::shared_ptr<platform::NSXPCConnection>& connection) {
  const uid_t user = connection->effectiveUserIdentifier();
  const auto& authority = parts_->authority;
  auto caller = authority == nullptr ? nullptr : authority->callerOf(*connection);
  if (!parts_->admits(user) || (authority != nullptr && caller == nullptr)) {
    parts_->log(user, platform::LogLine::of<row::refused>(connection->processIdentifier(), user));
    return false;
  }
  auto visit = parts_->sessions->visit();
  if (visit == nullptr) return false;
  const auto session = std::make_shared<DirectorySession>(parts_, requests_, monitor_, connection,
                                                          std::move(caller), std::move(visit));
  connection->setExportedInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDDeviceDirectoryProtocol::protocol()));
  connection->setExportedObject<WLHIDDeviceDirectoryProtocol>(session);
  connection->setRemoteObjectInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDDeviceDirectoryClientProtocol::protocol()));
  const auto over = [service = weak_from_this(), weak = std::weak_ptr(session)] {
    const auto owner = service.lock();
    const auto ending = weak.lock();
    if (owner != nullptr && ending != nullptr) owner->ended(ending);
  };
  connection->setInterruptionHandler(over);
  connection->setInvalidationHandler(over);
  if (!keep(session)) return false;
  connection->resume();
  return true;
}

bool DeviceDirectory::keep(const std::shared_ptr<DirectorySession>& session) {
  const std::lock_guard lock(mutex_);
  if (!isStopped_) sessions_.insert(session);
  return !isStopped_;
}

void DeviceDirectory::ended(const std::shared_ptr<DirectorySession>& session) {
  session->end();
  const std::lock_guard lock(mutex_);
  sessions_.erase(session);
}

}  // namespace router
