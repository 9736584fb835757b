// SPDX-License-Identifier: Apache-2.0

// A client's implementation: its status model, its connection, its routing session, and the methods
// that the router calls.
//
// Threading: as WLHIDEventRouterClient.h.
// Ownership: the client owns it and destroys it. A reference that the platform holds keeps the
//   client alive: exported() is a reference to the client.
// Errors: as WLHIDEventRouterClient.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "platform/foundation/ForkMark.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/NSXPCInterface.h"
#include "router-client/Holder.h"
#include "router-client/OpeningTurn.h"
#include "router-client/WLHIDEventRouterProtocols.h"

class WLHID_NO_EXPORT WLHIDEventRouterClient::Implementation final
    : public WLHIDEventRouterClientProtocol {
 public:
  using Client = WLHIDEventRouterClient;
  using Weak = std::weak_ptr<Client>;

  static Implementation& of(const Client& client) { return *client.implementation_; }

  Implementation(Client& client, std::uint64_t registryEntryID, std::uint64_t deviceMode,
                 std::shared_ptr<platform::NSDictionary> tagDictionary,
                 std::shared_ptr<platform::NSDictionary> typeDictionary);
  ~Implementation() override;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  /// Reads the router's status and starts observing its changes. Not part of the constructor,
  /// because it takes a reference to the client.
  void begin();

  // Properties.
  [[nodiscard]] std::uint64_t registryEntryID() const { return _registryEntryID; }
  [[nodiscard]] std::uint64_t hidDeviceMode() const { return _hidDeviceMode; }
  [[nodiscard]] WLHIDEventRouterStatus eventRouterStatus() const { return _eventRouterStatus; }
  [[nodiscard]] WLHIDEventRouterClientStatus clientStatus() const { return _clientStatus; }
  [[nodiscard]] bool started() const { return _started; }
  [[nodiscard]] std::shared_ptr<WLHIDEventRouterClientDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<WLHIDEventRouterClientDelegate>& delegate);
  void setClientStatus(WLHIDEventRouterClientStatus newClientStatus);
  void setStarted(bool newStarted);

  // The status model and the connection policy.
  [[nodiscard]] WLHIDEventRouterStatus currentEventRouterStatus() const;
  void _installationStatusChanged(const std::shared_ptr<platform::NSNotification>& notification);
  void _updateConnection();

  // The connection.
  std::shared_ptr<platform::NSError> openConnection();
  void closeConnection();
  void handleInterruption();
  void handleInvalidation();
  [[nodiscard]] std::shared_ptr<platform::NSXPCConnection> connection() const {
    return xpcConnectionToService.load();
  }

  // The routing session.
  void startListeningToService();
  void stopListeningToService();

  // Called by the router, on the connection's queue.
  void receivedData_forReportID(const std::shared_ptr<platform::NSData>& data,
                                std::uint32_t reportID) override;
  void receivedElementValues(const std::shared_ptr<platform::NSArray>& elementValues) override;

  // For input that no delegate takes; also called by the delegate's default methods.
  void logReport(const std::shared_ptr<platform::NSData>& data, std::uint32_t reportID) const;
  void logElementValues(const std::shared_ptr<platform::NSArray>& elementValues) const;

 private:
  void storeStarted(bool newStarted);
  void storeClientStatus(WLHIDEventRouterClientStatus newClientStatus);

  void settleConnection();
  [[nodiscard]] bool applyConnectionPolicy();
  template <class Action>
  [[nodiscard]] bool inOpeningTurn(const Action& action);
  [[nodiscard]] bool openAndStart();
  [[nodiscard]] bool closeWithoutRouter();
  void stopAndClose();
  [[nodiscard]] bool isRouterInstalled() const;
  [[nodiscard]] bool isConnectionPresent() const;

  void configureConnection(platform::NSXPCConnection& connection,
                           const std::shared_ptr<platform::NSXPCInterface>& exportedInterface,
                           const std::shared_ptr<platform::NSXPCInterface>& remoteInterface);
  void handleStartReply(const Weak& weakClient, const std::shared_ptr<platform::NSError>& error);
  void handleStartFailure(const Weak& weakClient, const std::shared_ptr<platform::NSError>& error);

  /// Null once the client's destruction has begun.
  [[nodiscard]] std::shared_ptr<Implementation> exported();

  Client& client_;
  // Destroyed in reverse order: the delegate reference, the dictionaries, then the connection.
  wlhid::Holder<std::shared_ptr<platform::NSXPCConnection>> xpcConnectionToService;
  const std::uint64_t _registryEntryID;
  const std::uint64_t _hidDeviceMode;
  const std::shared_ptr<platform::NSDictionary> _tagsByKQHIDUsageCode;
  const std::shared_ptr<platform::NSDictionary> _typeByKQHIDUsageCode;
  std::atomic<bool> _started{false};
  std::atomic<WLHIDEventRouterStatus> _eventRouterStatus{WLHIDEventRouterStatusNotInstalled};
  std::atomic<WLHIDEventRouterClientStatus> _clientStatus{WLHIDEventRouterClientStatusIdle};
  wlhid::OpeningTurn _openingTurn;
  const platform::ForkMark _forkMark;
  wlhid::Holder<std::weak_ptr<WLHIDEventRouterClientDelegate>> _delegate;
};
