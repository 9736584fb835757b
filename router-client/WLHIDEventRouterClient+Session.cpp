// SPDX-License-Identifier: Apache-2.0

// The routing session: the start and stop requests, and their replies.
#include "router-client/ClientLog.h"
#include "router-client/WLHIDEventRouterClient+Implementation.h"

using platform::NSError;
using platform::NSXPCConnection;
using platform::XPCErrorHandler;
using Implementation = WLHIDEventRouterClient::Implementation;

namespace {

/// A proxy for the router; null without a connection.
std::shared_ptr<WLHIDEventRouterProtocol> routerProxy(
    const std::shared_ptr<NSXPCConnection>& connection, XPCErrorHandler errorHandler) {
  if (!connection) return nullptr;
  return connection->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
      std::move(errorHandler));
}

XPCErrorHandler logError(const wlhid::LogSite& site,
                         const std::weak_ptr<WLHIDEventRouterClient>& weakClient) {
  return [&site, weakClient](const std::shared_ptr<NSError>& error) {
    wlhid::log(site, weakClient, error);
  };
}

}  // namespace

void Implementation::startListeningToService() {
  const Weak weakClient = client_.weak_from_this();
  wlhid::log(wlhid::site::startListening, client_);
  const auto router =
      routerProxy(xpcConnectionToService.load(), logError(wlhid::site::startError, weakClient));
  if (!router) return;
  router->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      _registryEntryID, _hidDeviceMode, _tagsByKQHIDUsageCode, _typeByKQHIDUsageCode,
      // Strong on purpose: a pending request keeps alive the client whose status its reply sets.
      [self = exported(), weakClient](const std::shared_ptr<NSError>& error) {
        self->handleStartReply(weakClient, error);
      });
}

void Implementation::handleStartReply(const Weak& weakClient,
                                      const std::shared_ptr<NSError>& error) {
  wlhid::log(wlhid::site::startReply, weakClient, error);
  if (error) {
    handleStartFailure(weakClient, error);
  } else {
    setClientStatus(WLHIDEventRouterClientStatusRouting);
  }
}

void Implementation::handleStartFailure(const Weak& weakClient,
                                        const std::shared_ptr<NSError>& error) {
  if (error->code() == WLHIDEventRouterNotPermitted)
    wlhid::log(wlhid::site::startNotPermitted, weakClient, error);
  setClientStatus(WLHIDEventRouterClientStatusFailed);
  if (const auto delegate = this->delegate())
    delegate->hidEventRouterClient_handleError(client_.shared_from_this(), error);
}

void Implementation::stopListeningToService() {
  const Weak weakClient = client_.weak_from_this();
  wlhid::log(wlhid::site::stopListening, client_);
  const auto router =
      routerProxy(xpcConnectionToService.load(), logError(wlhid::site::stopError, weakClient));
  if (router) router->stopRoutingService();
}
