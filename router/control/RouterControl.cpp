// SPDX-License-Identifier: Apache-2.0

#include "router/control/RouterControl.h"

#include <utility>

#include "router/control/ControlSession.h"

namespace router {
namespace {

platform::NSXPCListenerLimits listenerLimits(const RouterLimits& limits) {
  platform::NSXPCListenerLimits result;
  result.connections = limits.controlConnections;
  result.connectionsOfUser = limits.controlConnectionsPerUser;
  result.withoutHelloOfUser = limits.controlConnectionsPerUser;
  return result;
}

std::shared_ptr<TurnQuota> requestQuota(const RouterLimits& limits) {
  return std::make_shared<TurnQuota>(limits.controlRequestsPerUser, limits.controlRequests,
                                     std::chrono::milliseconds(0));
}

}  // namespace

RouterControl::RouterControl(std::shared_ptr<platform::NSXPCListener> listener, ControlParts parts)
    : listener_(std::move(listener)),
      parts_(std::make_shared<const ControlParts>(std::move(parts))),
      requests_(requestQuota(parts_->limits)) {}

void RouterControl::resume() {
  listener_->setDelegate(std::weak_ptr<platform::NSXPCListenerDelegate>(shared_from_this()));
  listener_->setLimits(listenerLimits(parts_->limits));
  listener_->resume();
}

void RouterControl::stop() {
  listener_->invalidate();
  std::set<std::shared_ptr<ControlSession>> left;
  {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    left = sessions_;
  }
  for (const auto& session : left) session->sayFarewell();
}

bool RouterControl::listener_shouldAcceptNewConnection(
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
  const auto session = std::make_shared<ControlSession>(parts_, requests_, connection,
                                                        std::move(caller), std::move(visit));
  connection->setExportedInterface(
      platform::NSXPCInterface::interfaceWithProtocol(RouterControlProtocol::protocol()));
  connection->setExportedObject<RouterControlProtocol>(session);
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

bool RouterControl::keep(const std::shared_ptr<ControlSession>& session) {
  const std::lock_guard lock(mutex_);
  if (!isStopped_) sessions_.insert(session);
  return !isStopped_;
}

void RouterControl::ended(const std::shared_ptr<ControlSession>& session) {
  session->end();
  const std::lock_guard lock(mutex_);
  sessions_.erase(session);
}

}  // namespace router
