// SPDX-License-Identifier: Apache-2.0

// The machine's own authorities, as the router's decisions use them: polkit and logind on the
// system bus.
//
// Threading: any thread; callbacks come on the bus's thread.
// Ownership: must outlive everything that was made from its sources, permits included. A router
//   keeps it until the process ends.
#pragma once

#include <memory>
#include <vector>

#include "platform/system/LoginSessions.h"
#include "platform/system/PolkitClient.h"
#include "platform/system/SystemBus.h"
#include "router/Devices.h"
#include "router/policy/SystemAuthority.h"

namespace router {

class SystemServices {
 public:
  explicit SystemServices(platform::system::SystemBus::Options bus = {},
                          platform::system::LoginSessions::Options sessions = {})
      : bus_(std::move(bus)), polkit_(bus_), sessions_(bus_, std::move(sessions)) {}

  /// Fills in what these services answer: askPolkit, sessionOf and watchSession.
  void addTo(AuthoritySources* sources);

 private:
  platform::system::SystemBus bus_;
  platform::system::PolkitClient polkit_;
  platform::system::LoginSessions sessions_;
};

/// What the decision needs to know of a device, from the source that has it.
[[nodiscard]] std::optional<RoutableDevice> routableDevice(
    const std::vector<std::unique_ptr<DeviceSource>>& sources, const DeviceDescription& device);

}  // namespace router
