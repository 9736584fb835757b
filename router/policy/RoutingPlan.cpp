// SPDX-License-Identifier: Apache-2.0

#include "router/policy/RoutingPlan.h"

#include <cstdint>
#include <set>

#include "router/policy/WantedReports.h"

namespace router {
namespace {

ReportIDs setOf(const std::set<std::uint8_t>& ids) {
  ReportIDs reports;
  for (const std::uint8_t id : ids) reports.set(id);
  return reports;
}

/// The reports that carry a usage which the application has named; all, if it has named none.
ReportIDs reportsFor(const UsageFilter& usages, const RoutableDevice& device) {
  if (device.descriptor == nullptr) return allReports();
  const auto wanted = wantedReports(*device.descriptor, usages);
  return wanted ? setOf(*wanted) : allReports();
}

/// What does not parse declares nothing.
ReportIDs declaredBy(const RoutableDevice& device) {
  return device.descriptor == nullptr ? ReportIDs() : setOf(declaredReports(*device.descriptor));
}

}  // namespace

RoutingPlan planFor(const RoutableDevice& device, DeviceMode mode, const UsageFilter& usages,
                    bool isGranted) {
  RoutingPlan plan;
  plan.reports = reportsFor(usages, device);
  const bool isOrdinary = device.classification.deviceClass == DeviceClass::Ordinary;
  // It was found ordinary by what it declares; anything else that it sends may be what it likes.
  if (isOrdinary) plan.reports &= declaredBy(device);
  const ReportIDs ordinary =
      isOrdinary || isGranted ? allReports() : setOf(device.classification.ordinaryReports);
  const bool wantsSensitive = (plan.reports & ~ordinary).any();
  // Without a word about what it is for, a device that mixes both is routed without its secrets.
  const bool takesWhatIsOrdinary = usages.wantsEverything() && ordinary.any();
  if (takesWhatIsOrdinary) plan.reports &= ordinary;
  plan.actions.push_back(wantsSensitive && !takesWhatIsOrdinary ? kRouteSensitiveAction
                                                                : kRouteAction);
  if (mode == DeviceMode::Exclusive) plan.actions.push_back(kTakeExclusivelyAction);
  return plan;
}

}  // namespace router
