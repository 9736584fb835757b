// SPDX-License-Identifier: Apache-2.0

#include "tests/support/TestRouter.h"

#include <sys/socket.h>

#include <stdexcept>
#include <utility>

#include "platform/services/ServiceEndpoints.h"

namespace testsupport {

using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::NSXPCListener;

namespace {

std::shared_ptr<WLHIDEventRouterClientProtocol> clientOf(NSXPCConnection& connection) {
  connection.setExportedInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
  connection.setRemoteObjectInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
  return connection.remoteObjectProxyWithErrorHandler<WLHIDEventRouterClientProtocol>({});
}

}  // namespace

RouterSession::RouterSession(std::shared_ptr<NSXPCConnection> accepted)
    : connection(std::move(accepted)), client(clientOf(*connection)) {}

void RouterSession::startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
    std::uint64_t entryID, std::uint64_t, const std::shared_ptr<platform::NSDictionary>& tags,
    const std::shared_ptr<platform::NSDictionary>&, StartReply reply) {
  starts.fetch_add(1);
  answer({entryID, tags}, std::move(reply));
}

void RouterSession::stopRoutingService() {
  isRouting = false;
  stops.fetch_add(1);
}

std::shared_ptr<TestRouter> TestRouter::listen(const std::string& path, int backlog,
                                               MakeSession makeSession,
                                               const platform::NSXPCListenerLimits& limits) {
  const int descriptor =
      platform::listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC, backlog, 0600);
  if (descriptor < 0) throw std::runtime_error("cannot listen at " + path);
  return serve(descriptor, std::move(makeSession), limits);
}

std::shared_ptr<TestRouter> TestRouter::serve(int descriptor, MakeSession makeSession,
                                              const platform::NSXPCListenerLimits& limits) {
  const auto router = std::make_shared<TestRouter>(std::move(makeSession));
  router->listener_ = NSXPCListener::initWithListeningDescriptor(descriptor);
  if (!router->listener_) return nullptr;
  router->listener_->setLimits(limits);
  router->listener_->setDelegate(router);
  router->listener_->resume();
  return router;
}

TestRouter::~TestRouter() {
  if (listener_) listener_->invalidate();
}

bool TestRouter::listener_shouldAcceptNewConnection(
    const std::shared_ptr<NSXPCListener>&, const std::shared_ptr<NSXPCConnection>& connection) {
  const auto session = makeSession_(connection);
  if (session) {
    connection->setExportedObject<WLHIDEventRouterProtocol>(session);
    connection->setInvalidationHandler(
        [router = weak_from_this(), weak = std::weak_ptr<RouterSession>(session)] {
          if (const auto owner = router.lock()) owner->end(weak);
        });
  }
  {
    const std::lock_guard lock(mutex_);
    ++arrivals_;
    if (session) sessions_.push_back(session);
  }
  if (session) connection->resume();
  return session != nullptr;
}

std::uint64_t TestRouter::arrivals() const {
  const std::lock_guard lock(mutex_);
  return arrivals_;
}

TestRouter::Sessions TestRouter::sessions() const {
  const std::lock_guard lock(mutex_);
  return sessions_;
}

std::size_t TestRouter::sessionCount() const {
  const std::lock_guard lock(mutex_);
  return sessions_.size();
}

bool TestRouter::waitUntilEnded(const std::shared_ptr<RouterSession>& session,
                                std::chrono::seconds patience) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, patience, [&] { return session->hasEnded_; });
}

bool TestRouter::release(const std::shared_ptr<RouterSession>& session) {
  const std::lock_guard lock(mutex_);
  return std::erase(sessions_, session) != 0;
}

void TestRouter::invalidateSessions() {
  for (const auto& session : takeSessions()) session->connection->invalidate();
}

void TestRouter::dropSessions() {
  static_cast<void>(takeSessions());
}

void TestRouter::end(const std::weak_ptr<RouterSession>& weak) {
  const auto session = weak.lock();  // released after the lock
  if (!session) return;
  const std::lock_guard lock(mutex_);
  std::erase(sessions_, session);
  session->hasEnded_ = true;
  changed_.notify_all();
}

TestRouter::Sessions TestRouter::takeSessions() {
  const std::lock_guard lock(mutex_);
  return std::exchange(sessions_, {});
}

}  // namespace testsupport
