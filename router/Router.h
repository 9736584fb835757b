// SPDX-License-Identifier: Apache-2.0

// The HID event router: serves WLHIDEventRouterProtocol on a listener and sends its clients the
// input of their devices; and, on two more listeners, shows and changes what it is doing, and tells
// which devices there are.
//
// Threading: any thread.
// Ownership: holds the listener, and each session until its connection ends.
// Errors: the constructor throws std::system_error and ServiceError. Later errors are reported to
//   the client or logged.
// Order: stop() ends every session after delivering what was sent to it.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "platform/services/SystemRoot.h"
#include "platform/xpc/NSXPCInterface.h"
#include "platform/xpc/NSXPCListener.h"
#include "router/Devices.h"
#include "router/RouterLimits.h"
#include "router/RouterLog.h"
#include "router/policy/RoutingAuthority.h"

namespace router {

struct RouterOptions {
  RouterLog log = logToStandardError;
  /// How long the router must have been without connections to be idle.
  std::chrono::milliseconds idleLimit{5000};
  RouterLimits limits;
  /// If null, those of the root.
  std::shared_ptr<const std::vector<std::unique_ptr<DeviceSource>>> sources;
  /// Decides each start request. Null on a user's own root, whose owner may route everything in it.
  std::shared_ptr<RoutingAuthority> authority;
  /// Serves the control service (router/control/ControlProtocol.h). Null: it is not offered.
  std::shared_ptr<platform::NSXPCListener> control;
  /// Serves the device directory (router-client/WLHIDDeviceDirectoryProtocols.h). Null: it is not
  /// offered.
  std::shared_ptr<platform::NSXPCListener> directory;
};

class Router {
 public:
  /// Opens the root unless it is open already. It must belong to this user.
  Router(const platform::SystemRoot& root, std::shared_ptr<platform::NSXPCListener> listener,
         RouterOptions options = {});
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;
  /// Stops.
  ~Router();

  /// Starts serving.
  void resume();
  /// Accepts no more connections, closes every session gracefully and waits a few seconds at most
  /// for them to end. A second call does nothing.
  void stop();

  /// Becomes readable once the router is idle. From then on it refuses connections and can only be
  /// stopped.
  [[nodiscard]] int idleDescriptor() const;

 private:
  class Core;
  const std::shared_ptr<Core> core_;
};

/// The interface that the router sets on an accepted connection: what it takes from clients. The
/// two dictionaries may hold every class that can cross a connection, because their content is up
/// to the application.
[[nodiscard]] std::shared_ptr<platform::NSXPCInterface> routerInterface();
/// What the router sends to clients.
[[nodiscard]] std::shared_ptr<platform::NSXPCInterface> routerClientInterface();

}  // namespace router
