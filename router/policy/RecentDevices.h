// SPDX-License-Identifier: Apache-2.0

// What is known of devices, for listings and previews: looked up once for as long as nothing has
// changed, and for ten seconds at most. Decisions do not use it; they look at the device anew.
//
// Threading: any thread. No lock is held while the computer is asked.
// Ownership: shares the sources.
// Errors: as routableDevice().
// Order: a change that a source's watch has noticed counts from the next call on. Without a watch
//   for each source nothing is kept.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "router/Devices.h"
#include "router/RoutedDevices.h"
#include "router/policy/RoutingPlan.h"

namespace router {

class RecentDevices {
 public:
  using Clock = std::chrono::steady_clock;

  explicit RecentDevices(std::shared_ptr<const DeviceSources> sources,
                         std::function<Clock::time_point()> now = Clock::now);

  [[nodiscard]] std::optional<RoutableDevice> device(const DeviceDescription& device);

 private:
  [[nodiscard]] std::shared_ptr<const DeviceSources> recent();
  [[nodiscard]] bool hasChanged();

  const std::shared_ptr<const DeviceSources> sources_;
  const std::function<Clock::time_point()> now_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<DeviceWatch>> watches_;
  bool watchesAll_ = true;
  std::shared_ptr<const DeviceSources> recent_;
  Clock::time_point since_;
};

}  // namespace router
