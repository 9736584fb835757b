// SPDX-License-Identifier: Apache-2.0

// Finds out which devices a caller may have routed, without asking anybody.
//
// Threading: any thread; answers come on any.
// Ownership: whoever waits for the result holds it. Without it, nothing is told.
// Errors: a device without an answer stays unknown.
// Order: `done` comes once, after all answers or from finish(), with no lock held.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "router/control/DeviceListing.h"
#include "router/policy/RoutingAuthority.h"

namespace router {

class DeviceInquiry : public std::enable_shared_from_this<DeviceInquiry> {
 public:
  using Done = std::function<void(const std::vector<ListedDevice>& devices)>;

  /// Of each only the permission and its explanation are found out.
  DeviceInquiry(std::vector<ListedDevice> devices, Done done);
  void begin(RoutingCaller& caller);
  /// The time is up.
  void finish();

 private:
  void take(std::size_t index, const RoutingAnswer& answer);
  void countDown();

  const Done done_;
  std::mutex mutex_;
  std::vector<ListedDevice> devices_;
  std::vector<std::unique_ptr<RoutingPermit>> permits_;
  std::size_t open_ = 1;  // the questions, and begin()
  bool isDone_ = false;
};

/// The devices with their classes; without an authority, as on a user's own root: whoever is served
/// there may have every device.
[[nodiscard]] std::vector<ListedDevice> classified(const RoutingAuthority* authority,
                                                   std::vector<DeviceDescription> devices);

}  // namespace router
