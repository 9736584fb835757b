// SPDX-License-Identifier: Apache-2.0

// Serves the router's control service (router/control/ControlProtocol.h) on a listener of its own.
//
// Threading: any thread.
// Ownership: shares the parts of the router that it shows; holds each connection until it ends. A
//   connection keeps the router in use.
// Errors: reported to the caller.
// Order: after stop() no connection is accepted, and those that exist are closed.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>

#include "platform/xpc/NSXPCListener.h"
#include "router/Quotas.h"
#include "router/RoutedDevices.h"
#include "router/RouterLimits.h"
#include "router/SessionRegistry.h"
#include "router/StartLine.h"
#include "router/policy/RoutingAuthority.h"

namespace router {

/// What the service shows and uses of the router.
struct ControlParts {
  std::shared_ptr<SessionRegistry> sessions;
  std::shared_ptr<RoutedDevices> devices;
  std::shared_ptr<StartLine> startLine;         ///< for its clock
  std::shared_ptr<RoutingAuthority> authority;  ///< null on a user's own root
  std::function<bool(uid_t)> admits;            ///< whether the user is served at all
  std::function<void(uid_t, const platform::LogLine&)> log;
  RouterLimits limits;
};

class ControlSession;

class RouterControl final : public platform::NSXPCListenerDelegate,
                            public std::enable_shared_from_this<RouterControl> {
 public:
  RouterControl(std::shared_ptr<platform::NSXPCListener> listener, ControlParts parts);

  void resume();
  void stop();

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>& listener,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override;

 private:
  bool keep(const std::shared_ptr<ControlSession>& session);
  void ended(const std::shared_ptr<ControlSession>& session);

  const std::shared_ptr<platform::NSXPCListener> listener_;
  const std::shared_ptr<const ControlParts> parts_;
  const std::shared_ptr<TurnQuota> requests_;
  std::mutex mutex_;
  bool isStopped_ = false;
  std::set<std::shared_ptr<ControlSession>> sessions_;
};

}  // namespace router
