// SPDX-License-Identifier: Apache-2.0

#include "router/control/ControlProtocol.h"

#include <utility>

#include "platform/xpc/XPCTraits.h"

namespace router {
namespace {

using Methods =
    platform::XPCMethodList<RouterControlProtocol, &RouterControlProtocol::statusWithReply,
                            &RouterControlProtocol::devicesWithReply,
                            &RouterControlProtocol::endSession_reply,
                            &RouterControlProtocol::arrivalsOfDevice_reply>;

class Proxy final : public RouterControlProtocol, platform::XPCProxy<Methods> {
 public:
  using XPCProxy::XPCProxy;

  void statusWithReply(Reply reply) override {
    message<&RouterControlProtocol::statusWithReply>(std::move(reply));
  }
  void devicesWithReply(Reply reply) override {
    message<&RouterControlProtocol::devicesWithReply>(std::move(reply));
  }
  void endSession_reply(std::uint64_t number, EndReply reply) override {
    message<&RouterControlProtocol::endSession_reply>(number, std::move(reply));
  }
  void arrivalsOfDevice_reply(std::uint64_t registryEntryID, Reply reply) override {
    message<&RouterControlProtocol::arrivalsOfDevice_reply>(registryEntryID, std::move(reply));
  }
};

}  // namespace

const platform::XPCProtocol& RouterControlProtocol::protocol() {
  return platform::xpcProtocol<Methods, Proxy>(
      "RouterControlProtocol",
      {"statusWithReply:", "devicesWithReply:", "endSession:reply:", "arrivalsOfDevice:reply:"});
}

}  // namespace router
