// SPDX-License-Identifier: Apache-2.0

// Routes devices for as long as a command needs them.
//
// Threading: the main thread, which blocks; deliveries come on the framework's threads.
// Ownership: the sessions stay the caller's; the clients exist only while routing goes on.
// Errors: Failure if no router is installed; how routing failed is in the result.
// Order: create the stop signals before anything else that may start a thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "tool/routing/RouteSession.h"
#include "tool/terminal/StopSignals.h"

namespace tool {

/// Throws Failure, which says how to install one, unless a current router is installed.
void requireInstalledRouter();
/// For the reason why a start request is not answered: how to find out more.
[[nodiscard]] std::string adviceOnStarting();

struct RoutedDevice {
  std::uint64_t registryEntryID = 0;
  std::shared_ptr<RouteSession> session;
  std::uint64_t mode = 0;
  std::shared_ptr<platform::NSDictionary> tags = nullptr;  ///< null: all element values
};

struct RoutingOptions {
  double seconds = 0;  ///< 0: unlimited
  std::string advice = adviceOnStarting();
  /// Called on the main thread every `interval`, if set; routing ends when it returns false.
  std::function<bool()> tick = nullptr;
  std::chrono::milliseconds interval{250};
};

/// Routes them until each session has ended, one has failed, a signal arrives or the time is up.
/// The result is the failure, if one failed.
[[nodiscard]] RouteEnd routeUntilEnd(const std::vector<RoutedDevice>& devices, StopSignals& signals,
                                     const RoutingOptions& options);

}  // namespace tool
