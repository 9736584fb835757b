// SPDX-License-Identifier: Apache-2.0

#include "router/requests/RequestService.h"

#include <chrono>
#include <utility>

#include "router/LogTable.h"

namespace router {

RequestService::RequestService(std::shared_ptr<platform::NSXPCListener> listener,
                               ServiceParts parts, const Limits& limits)
    : listener_(std::move(listener)),
      parts_(std::make_shared<const ServiceParts>(std::move(parts))),
      requests_(std::make_shared<TurnQuota>(limits.requestsPerUser, limits.requests,
                                            std::chrono::milliseconds(0))),
      limits_(limits) {}

void RequestService::resume() {
  platform::NSXPCListenerLimits limits;
  limits.connections = limits_.connections;
  limits.connectionsOfUser = limits_.connectionsPerUser;
  limits.withoutHelloOfUser = limits_.connectionsPerUser;
  listener_->setDelegate(std::weak_ptr<platform::NSXPCListenerDelegate>(shared_from_this()));
  listener_->setLimits(limits);
  listener_->resume();
}

void RequestService::stop() {
  listener_->invalidate();
  std::set<std::shared_ptr<RequestSession>> left;
  {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    left = sessions_;
  }
  stopServing();
  for (const auto& session : left) session->sayFarewell();
}

bool RequestService::listener_shouldAcceptNewConnection(
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
  const auto session =
      sessionFor({parts_, requests_, connection, std::move(caller), std::move(visit)});
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

bool RequestService::keep(const std::shared_ptr<RequestSession>& session) {
  const std::lock_guard lock(mutex_);
  if (!isStopped_) sessions_.insert(session);
  return !isStopped_;
}

void RequestService::ended(const std::shared_ptr<RequestSession>& session) {
  session->end();
  const std::lock_guard lock(mutex_);
  sessions_.erase(session);
}

}  // namespace router
