// SPDX-License-Identifier: Apache-2.0

// One caller's connection to the control service.
//
// Threading: requests arrive on the connection's queue, and answers continue there.
// Errors: each request is answered once.
// Order: one listing and one question at a time; another meanwhile is refused.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "router/StartLine.h"
#include "router/control/ControlProtocol.h"
#include "router/control/DeviceInquiry.h"
#include "router/requests/RequestSession.h"

namespace router {

class ControlSession final : public RequestSession,
                             public RouterControlProtocol,
                             public std::enable_shared_from_this<ControlSession> {
 public:
  using RequestSession::RequestSession;

  void statusWithReply(Reply reply) override;
  void devicesWithReply(Reply reply) override;
  void endSession_reply(std::uint64_t number, EndReply reply) override;
  void arrivalsOfDevice_reply(std::uint64_t registryEntryID, Reply reply) override;

  void end() override;

 private:
  void onQueue(std::function<void(ControlSession&)> work);
  void endNow(std::uint64_t number, const EndReply& reply);
  void takeDecision(std::uint64_t number, const EndReply& reply, const RoutingAnswer& answer);

  // On the connection's queue.
  std::shared_ptr<DeviceInquiry> devices_;
  StartLine::Ticket timeIsUp_;
  bool isAsking_ = false;
  std::unique_ptr<RoutingPermit> question_;
};

}  // namespace router
