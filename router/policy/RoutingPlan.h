// SPDX-License-Identifier: Apache-2.0

// What must be permitted for a start request, and what it gets if it is.
//
// An ordinary device, and a sensitive one that an administrator has granted to the user, needs the
// right to route. A sensitive one needs the right to route sensitive devices, which a person gives
// each time. One that mixes both needs that only for its sensitive reports: an application that
// names no usage, or only usages of the others, gets the others with the ordinary right. Taking a
// device from everybody else is a right of its own.
//
// With the ordinary right alone, nobody gets a report that the descriptor does not declare. A
// sensitive device that was permitted as a whole may send anything.
//
// Threading: values; any thread.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "platform/services/DeviceGrants.h"
#include "router/Devices.h"
#include "router/ReportDescriptor.h"
#include "router/ReportIDs.h"
#include "router/Subscription.h"
#include "router/UsageFilter.h"
#include "router/policy/DeviceClass.h"

namespace router {

inline constexpr std::string_view kRouteAction = "com.quillmar.hideventrouter.route";
inline constexpr std::string_view kRouteSensitiveAction =
    "com.quillmar.hideventrouter.route-sensitive";
inline constexpr std::string_view kTakeExclusivelyAction =
    "com.quillmar.hideventrouter.take-exclusively";

/// A device as the decision sees it.
struct RoutableDevice {
  platform::DeviceIdentity identity;
  Classification classification;
  std::shared_ptr<const ReportDescriptor> descriptor;  ///< null if it does not parse
};

struct RoutingPlan {
  std::vector<std::string_view> actions;  ///< all of them, to be asked in this order
  ReportIDs reports;                      ///< what the permission covers
  friend bool operator==(const RoutingPlan&, const RoutingPlan&) = default;
};

[[nodiscard]] RoutingPlan planFor(const RoutableDevice& device, DeviceMode mode,
                                  const UsageFilter& usages, bool isGranted);

}  // namespace router
