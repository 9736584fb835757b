// The routing session: the start and stop requests, and what comes back.
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "router-client/ClientLog.h"

using platform::NSError;
using platform::NSXPCConnection;
using platform::XPCErrorHandler;

namespace {

/// A proxy for the router, or null where there is no connection.
std::shared_ptr<WLHIDEventRouterProtocol> routerProxy(
    const std::shared_ptr<NSXPCConnection>& connection, XPCErrorHandler errorHandler) {
  if (!connection) return nullptr;
  return connection->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
      std::move(errorHandler));
}

XPCErrorHandler logError(const wlhid::LogSite& site,
                         const std::weak_ptr<WLHIDEventRouterClient>& weakSelf) {
  return [&site, weakSelf](const std::shared_ptr<NSError>& error) {
    wlhid::log(site, weakSelf, error);
  };
}

}  // namespace

void WLHIDEventRouterClient::startListeningToService() {
  const Weak weakSelf = weak_from_this();
  wlhid::log(wlhid::site::startListening, *this);
  const auto router =
      routerProxy(xpcConnectionToService.load(), logError(wlhid::site::startError, weakSelf));
  if (!router) return;
  router->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      _registryEntryID, _hidDeviceMode, _tagsByKQHIDUsageCode, _typeByKQHIDUsageCode,
      // Strong on purpose: the answer to a pending request finds the client whose status it sets.
      [self = weakSelf.lock(), weakSelf](const std::shared_ptr<NSError>& error) {
        self->handleStartReply(weakSelf, error);
      });
}

void WLHIDEventRouterClient::handleStartReply(const Weak& weakSelf,
                                              const std::shared_ptr<NSError>& error) {
  wlhid::log(wlhid::site::startReply, weakSelf, error);
  if (error) {
    handleStartFailure(weakSelf, error);
  } else {
    setClientStatus(WLHIDEventRouterClientStatusRouting);
  }
}

void WLHIDEventRouterClient::handleStartFailure(const Weak& weakSelf,
                                                const std::shared_ptr<NSError>& error) {
  if (error->code() == WLHIDEventRouterNotPermitted)
    wlhid::log(wlhid::site::startNotPermitted, weakSelf, error);
  setClientStatus(WLHIDEventRouterClientStatusFailed);
  if (const auto delegate = this->delegate())
    delegate->hidEventRouterClient_handleError(shared_from_this(), error);
}

void WLHIDEventRouterClient::stopListeningToService() {
  const Weak weakSelf = weak_from_this();
  wlhid::log(wlhid::site::stopListening, *this);
  const auto router =
      routerProxy(xpcConnectionToService.load(), logError(wlhid::site::stopError, weakSelf));
  if (router) router->stopRoutingService();
}
