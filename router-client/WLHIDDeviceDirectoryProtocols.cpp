// SPDX-License-Identifier: Apache-2.0

#include "router-client/WLHIDDeviceDirectoryProtocols.h"

#include <utility>

#include "platform/xpc/XPCTraits.h"

namespace {

using platform::NSArray;
using platform::NSDictionary;

using DirectoryMethods =
    platform::XPCMethodList<WLHIDDeviceDirectoryProtocol,
                            &WLHIDDeviceDirectoryProtocol::watchDevicesMatching_excluding_reply,
                            &WLHIDDeviceDirectoryProtocol::reportDescriptorOfDevice_reply>;

class DirectoryProxy final : public WLHIDDeviceDirectoryProtocol,
                             platform::XPCProxy<DirectoryMethods> {
 public:
  using XPCProxy::XPCProxy;

  void watchDevicesMatching_excluding_reply(const std::shared_ptr<NSArray>& matching,
                                            const std::shared_ptr<NSArray>& excluding,
                                            WatchReply reply) override {
    message<&WLHIDDeviceDirectoryProtocol::watchDevicesMatching_excluding_reply>(
        matching, excluding, std::move(reply));
  }
  void reportDescriptorOfDevice_reply(std::uint64_t registryEntryID,
                                      DescriptorReply reply) override {
    message<&WLHIDDeviceDirectoryProtocol::reportDescriptorOfDevice_reply>(registryEntryID,
                                                                           std::move(reply));
  }
};

using WatcherMethods = platform::XPCMethodList<WLHIDDeviceDirectoryClientProtocol,
                                               &WLHIDDeviceDirectoryClientProtocol::deviceArrived,
                                               &WLHIDDeviceDirectoryClientProtocol::deviceChanged,
                                               &WLHIDDeviceDirectoryClientProtocol::deviceDeparted>;

class WatcherProxy final : public WLHIDDeviceDirectoryClientProtocol,
                           platform::XPCProxy<WatcherMethods> {
 public:
  using XPCProxy::XPCProxy;

  void deviceArrived(const std::shared_ptr<NSDictionary>& device) override {
    message<&WLHIDDeviceDirectoryClientProtocol::deviceArrived>(device);
  }
  void deviceChanged(const std::shared_ptr<NSDictionary>& device) override {
    message<&WLHIDDeviceDirectoryClientProtocol::deviceChanged>(device);
  }
  void deviceDeparted(std::uint64_t registryEntryID) override {
    message<&WLHIDDeviceDirectoryClientProtocol::deviceDeparted>(registryEntryID);
  }
};

}  // namespace

const platform::XPCProtocol& WLHIDDeviceDirectoryProtocol::protocol() {
  return platform::xpcProtocol<DirectoryMethods, DirectoryProxy>(
      "WLHIDDeviceDirectoryProtocol",
      {"watchDevicesMatching:excluding:reply:", "reportDescriptorOfDevice:reply:"});
}

const platform::XPCProtocol& WLHIDDeviceDirectoryClientProtocol::protocol() {
  return platform::xpcProtocol<WatcherMethods, WatcherProxy>(
      "WLHIDDeviceDirectoryClientProtocol",
      {"deviceArrived:", "deviceChanged:", "deviceDeparted:"});
}
