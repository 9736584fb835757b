// SPDX-License-Identifier: Apache-2.0

// A verb of the command on the system's own root, which is a directory of the test's, with a router
// that answers one request.
#pragma once

#include <filesystem>
#include <memory>

#include "router/control/DeviceListing.h"
#include "tests/unit/tool/FakeRouter.h"
#include "tests/unit/tool/VerbTest.h"

namespace tool {

class SystemVerbTest : public VerbTest {
 protected:
  using Object = std::shared_ptr<platform::NSObject>;

  SystemVerbTest() {
    std::filesystem::create_directories(root_.path());
    platform::SystemRoot::setSystemForTests(root_.path());
  }
  ~SystemVerbTest() override { platform::SystemRoot::setSystemForTests({}); }

  /// Answers the first request.
  [[nodiscard]] std::unique_ptr<FakeRouter> routerThatSays(const Object& dictionary,
                                                           const Object& error = nullptr) {
    return std::make_unique<FakeRouter>(
        platform_, [dictionary, error](platform::ScriptedConnection& connection) {
          platform::XPCValues values;
          values.append(dictionary);
          values.append(error);
          connection.deliverReply(values);
        });
  }
  [[nodiscard]] std::unique_ptr<FakeRouter> routerWith(
      const std::vector<router::ListedDevice>& devices) {
    return routerThatSays(router::dictionaryOf(devices));
  }
  /// Answers a request whose reply is an error or nothing.
  [[nodiscard]] std::unique_ptr<FakeRouter> routerThatReplies(
      const std::shared_ptr<platform::NSError>& error) {
    return std::make_unique<FakeRouter>(
        platform_,
        [error](platform::ScriptedConnection& connection) { connection.deliverReply(error); });
  }
  static router::ListedDevice pedal() {
    router::ListedDevice listed;
    listed.device.registryEntryID = 0x10007;
    listed.device.name = "Pedal";
    listed.device.bus = 3;
    listed.device.vendor = 0x5f3;
    listed.device.product = 0xff;
    listed.device.source = "hidraw0";
    listed.deviceClass = router::DeviceClass::Sensitive;
    listed.reason = "keys: report 1";
    listed.permission = router::DevicePermission::Administrator;
    listed.explanation = "an administrator has to agree each time";
    return listed;
  }
};

}  // namespace tool
