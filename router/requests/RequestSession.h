// SPDX-License-Identifier: Apache-2.0

// A caller's connection to a service that answers requests about the router: the control service,
// the device directory.
//
// Threading: requests arrive on the connection's queue.
// Ownership: holds its connection; the service holds the session until the connection has ended.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <utility>

#include "platform/foundation/LogTemplate.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router/Quotas.h"
#include "router/RoutedDevices.h"
#include "router/RouterErrors.h"
#include "router/RouterLimits.h"
#include "router/SessionRegistry.h"
#include "router/StartLine.h"
#include "router/policy/RoutingAuthority.h"

namespace router {

/// What such a service shows and uses of the router.
struct ServiceParts {
  std::shared_ptr<SessionRegistry> sessions;
  std::shared_ptr<RoutedDevices> devices;
  std::shared_ptr<StartLine> startLine;         ///< for its clock
  std::shared_ptr<RoutingAuthority> authority;  ///< null on a user's own root
  std::function<bool(uid_t)> admits;            ///< whether the user is served at all
  std::function<void(uid_t, const platform::LogLine&)> log;
  RouterLimits limits;
};

/// Who has connected, and what answering takes.
struct RequestPeer {
  std::shared_ptr<const ServiceParts> parts;
  std::shared_ptr<TurnQuota> requests;  ///< shared by all sessions of the service
  std::shared_ptr<platform::NSXPCConnection> connection;
  std::shared_ptr<RoutingCaller> caller;  ///< null where nobody has to be asked
  std::shared_ptr<void> visit;            ///< keeps the router in use
};

class RequestSession {
 public:
  explicit RequestSession(RequestPeer peer)
      : peer_(std::move(peer)),
        process_(peer_.connection->processIdentifier()),
        user_(peer_.connection->effectiveUserIdentifier()) {}
  virtual ~RequestSession() = default;
  RequestSession(const RequestSession&) = delete;
  RequestSession& operator=(const RequestSession&) = delete;

  void sayFarewell() { connection().invalidate(); }
  /// The connection has ended: what is being asked is withdrawn.
  virtual void end() = 0;

 protected:
  [[nodiscard]] const ServiceParts& parts() const { return *peer_.parts; }
  [[nodiscard]] platform::NSXPCConnection& connection() const { return *peer_.connection; }
  [[nodiscard]] RoutingCaller* caller() const { return peer_.caller.get(); }
  [[nodiscard]] pid_t process() const { return process_; }
  [[nodiscard]] uid_t user() const { return user_; }

  /// Null, or why the request is refused. Counts the request.
  [[nodiscard]] std::shared_ptr<platform::NSError> refusal() const {
    if (peer_.requests->reserve(user_, StartLine::Clock::now())) return nullptr;
    return routerError(IOReturn::Busy, "too many requests from this user; try again later");
  }

 private:
  const RequestPeer peer_;
  const pid_t process_;
  const uid_t user_;
};

}  // namespace router
