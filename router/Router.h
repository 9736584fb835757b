// The HID event router: serves WLHIDEventRouterProtocol on a listener and sends its clients the
// input of their devices.
//
// Threading: any thread.
// Ownership: holds the listener and, until their connections end, the sessions.
// Errors: the constructor throws std::system_error and ServiceError. What goes wrong later is
// answered to the client
//   or logged.
// Order: stop() ends every session behind what was sent to it.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "platform/services/SystemRoot.h"
#include "platform/xpc/NSXPCListener.h"
#include "router/Devices.h"
#include "router/RouterLimits.h"
#include "router/RouterLog.h"

namespace router {

struct RouterOptions {
  RouterLog log = logToStandardError;
  /// How long nobody must have been connected until the router is idle.
  std::chrono::milliseconds idleLimit{5000};
  RouterLimits limits;
  /// Null: those of the root.
  std::shared_ptr<const std::vector<std::unique_ptr<DeviceSource>>> sources;
};

class Router {
 public:
  /// The root is opened, unless it is open already, and must be this user's own.
  Router(const platform::SystemRoot& root, std::shared_ptr<platform::NSXPCListener> listener,
         RouterOptions options = {});
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;
  /// Stops.
  ~Router();

  /// Begins to serve.
  void resume();
  /// Takes no further connection, says farewell to every session and waits, up to a bound of a few
  /// seconds, until they have ended. A second call does nothing.
  void stop();

  /// Becomes readable once the router is idle. From then on it refuses connections: what remains is
  /// to stop it.
  [[nodiscard]] int idleDescriptor() const;

 private:
  class Core;
  const std::shared_ptr<Core> core_;
};

/// The interface as the router configures it for an accepted connection: what it takes from
/// clients, with every class that can cross a connection admitted in the two dictionaries, for what
/// stands in them is the application's business.
[[nodiscard]] std::shared_ptr<platform::NSXPCInterface> routerInterface();
/// What it sends to them.
[[nodiscard]] std::shared_ptr<platform::NSXPCInterface> routerClientInterface();

}  // namespace router
