// SPDX-License-Identifier: Apache-2.0

#include "router-client/WLHIDEventRouterProtocols.h"

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/xpc/XPCTraits.h"

template <>
struct platform::XPCMembers<&WLHIDEventRouterClientProtocol::receivedElementValues, 0>
    : platform::XPCMembersAre<platform::KQHIDDeviceElementValue> {};

namespace {

using RouterMethods = platform::XPCMethodList<
    WLHIDEventRouterProtocol,
    &WLHIDEventRouterProtocol::
        startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply,
    &WLHIDEventRouterProtocol::stopRoutingService>;

class RouterProxy final : public WLHIDEventRouterProtocol, platform::XPCProxy<RouterMethods> {
 public:
  using XPCProxy::XPCProxy;

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tagDictionary,
      const std::shared_ptr<platform::NSDictionary>& typeDictionary, StartReply reply) override {
    message<&WLHIDEventRouterProtocol::
                startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply>(
        entryID, deviceMode, tagDictionary, typeDictionary, std::move(reply));
  }
  void stopRoutingService() override { message<&WLHIDEventRouterProtocol::stopRoutingService>(); }
};

using ClientMethods =
    platform::XPCMethodList<WLHIDEventRouterClientProtocol,
                            &WLHIDEventRouterClientProtocol::receivedData_forReportID,
                            &WLHIDEventRouterClientProtocol::receivedElementValues>;

class ClientProxy final : public WLHIDEventRouterClientProtocol, platform::XPCProxy<ClientMethods> {
 public:
  using XPCProxy::XPCProxy;

  void receivedData_forReportID(const std::shared_ptr<platform::NSData>& data,
                                std::uint32_t reportID) override {
    message<&WLHIDEventRouterClientProtocol::receivedData_forReportID>(data, reportID);
  }
  void receivedElementValues(const std::shared_ptr<platform::NSArray>& elementValues) override {
    message<&WLHIDEventRouterClientProtocol::receivedElementValues>(elementValues);
  }
};

}  // namespace

const platform::XPCProtocol& WLHIDEventRouterProtocol::protocol() {
  return platform::xpcProtocol<RouterMethods, RouterProxy>(
      "WLHIDEventRouterProtocol",
      {"startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:",
       "stopRoutingService"});
}

const platform::XPCProtocol& WLHIDEventRouterClientProtocol::protocol() {
  return platform::xpcProtocol<ClientMethods, ClientProxy>(
      "WLHIDEventRouterClientProtocol", {"receivedData:forReportID:", "receivedElementValues:"});
}
