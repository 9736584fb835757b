// The client's internal steps, for those who test them one by one. An application has no use for
// this.
//
// Threading, Ownership, Errors, Order: as in WLHIDEventRouterClient.h.
#pragma once

#include <memory>

#include "WLHIDAccess/WLHIDEventRouterClient.h"

class WLHIDEventRouterClientPrivate {
 public:
  using Client = WLHIDEventRouterClient;

  static WLHIDEventRouterStatus currentEventRouterStatus(const Client& client) {
    return client.currentEventRouterStatus();
  }
  static void _installationStatusChanged(Client& client) {
    client._installationStatusChanged(nullptr);
  }
  static void _updateConnection(Client& client) { client._updateConnection(); }
  static std::shared_ptr<platform::NSError> openConnection(Client& client) {
    return client.openConnection();
  }
  static void closeConnection(Client& client) { client.closeConnection(); }
  static void handleInterruption(Client& client) { client.handleInterruption(); }
  static void handleInvalidation(Client& client) { client.handleInvalidation(); }
  static void startListeningToService(Client& client) { client.startListeningToService(); }
  static void stopListeningToService(Client& client) { client.stopListeningToService(); }
  static std::shared_ptr<platform::NSXPCConnection> xpcConnectionToService(const Client& client) {
    return client.xpcConnectionToService.load();
  }
};
