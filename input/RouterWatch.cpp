// SPDX-License-Identifier: Apache-2.0

#include "input/RouterWatch.h"

#include <utility>

#include "platform/xpc/NSXPCInterface.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace wlhid {

using platform::NSXPCConnection;
using platform::NSXPCInterface;

/// Gets nothing, as nothing is started. For the connections it is the client whose turn to pause it
/// is when they keep ending.
class RouterWatch::Receiver final : public WLHIDEventRouterClientProtocol {
 public:
  void receivedData_forReportID(const std::shared_ptr<platform::NSData>&, std::uint32_t) override {}
  void receivedElementValues(const std::shared_ptr<platform::NSArray>&) override {}
};

RouterWatch::RouterWatch(Loop& loop, std::function<void()> died)
    : loop_(loop), died_(std::move(died)), receiver_(std::make_shared<Receiver>()) {}

void RouterWatch::connect() {
  connection_ =
      NSXPCConnection::initWithMachServiceName_options(platform::str(WLHIDEventRouterLabel), 0);
  if (connection_ == nullptr) return;
  connection_->setExportedInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
  connection_->setExportedObject<WLHIDEventRouterClientProtocol>(receiver_);
  connection_->setRemoteObjectInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
  connection_->setInterruptionHandler(onLoop(&RouterWatch::interrupted));
  connection_->setInvalidationHandler(onLoop(&RouterWatch::connect));
  connection_->resume();
  reach();
}

/// A connection opens for its first message. This one changes nothing where nothing was started.
void RouterWatch::reach() const {
  const auto router = connection_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
      [](const std::shared_ptr<platform::NSError>&) {});
  if (router != nullptr) router->stopRoutingService();
}

void RouterWatch::interrupted() {
  reach();
  died_();
}

std::function<void()> RouterWatch::onLoop(void (RouterWatch::*work)()) {
  return [&loop = loop_, weak = weak_from_this(), work] {
    loop.post([weak, work] {
      if (const auto self = weak.lock()) ((*self).*work)();
    });
  };
}

}  // namespace wlhid
