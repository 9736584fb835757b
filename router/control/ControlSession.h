// SPDX-License-Identifier: Apache-2.0

// One caller's connection to the control service.
//
// Threading: requests arrive on the connection's queue, and answers continue there.
// Ownership: holds its connection; the service holds the session until the connection has ended.
// Errors: each request is answered once.
// Order: one listing and one question at a time; another meanwhile is refused.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/xpc/NSXPCConnection.h"
#include "router/Quotas.h"
#include "router/RouterErrors.h"
#include "router/StartLine.h"
#include "router/control/ControlProtocol.h"
#include "router/control/DeviceInquiry.h"
#include "router/control/RouterControl.h"

namespace router {

class ControlSession final : public RouterControlProtocol,
                             public std::enable_shared_from_this<ControlSession> {
 public:
  /// `caller` is null where nobody has to be asked; `visit` keeps the router in use.
  ControlSession(std::shared_ptr<const ControlParts> parts, std::shared_ptr<TurnQuota> requests,
                 std::shared_ptr<platform::NSXPCConnection> connection,
                 std::shared_ptr<RoutingCaller> caller, std::shared_ptr<void> visit);

  void statusWithReply(Reply reply) override;
  void devicesWithReply(Reply reply) override;
  void endSession_reply(std::uint64_t number, EndReply reply) override;

  void sayFarewell() { connection_->invalidate(); }
  /// The connection has ended: what is being asked is withdrawn.
  void end();

 private:
  /// Null, or why the request is refused.
  std::shared_ptr<platform::NSError> refusal();
  void onQueue(std::function<void(ControlSession&)> work);
  void endNow(std::uint64_t number, const EndReply& reply);
  void takeDecision(std::uint64_t number, const EndReply& reply, const RoutingAnswer& answer);

  const std::shared_ptr<const ControlParts> parts_;
  const std::shared_ptr<TurnQuota> requests_;
  const std::shared_ptr<platform::NSXPCConnection> connection_;
  const std::shared_ptr<RoutingCaller> caller_;
  const std::shared_ptr<void> visit_;
  const pid_t process_;
  const uid_t user_;
  // On the connection's queue.
  std::shared_ptr<DeviceInquiry> devices_;
  StartLine::Ticket timeIsUp_;
  bool isAsking_ = false;
  std::unique_ptr<RoutingPermit> question_;
};

}  // namespace router
