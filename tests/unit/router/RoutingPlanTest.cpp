// SPDX-License-Identifier: Apache-2.0

#include "router/policy/RoutingPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace {

using router::Classification;
using router::DeviceClass;
using router::DeviceMode;
using router::kRouteAction;
using router::kRouteSensitiveAction;
using router::kTakeExclusivelyAction;
using router::ReportDescriptor;
using router::ReportIDs;
using router::RoutableDevice;
using router::RoutingPlan;
using router::UsageFilter;
using testing::ElementsAre;

/// Report 1 has X (01:30), report 2 has keys (page 07), report 3 has Y (01:31).
const std::vector<std::uint8_t> kMixed{0x05, 0x01, 0x09, 0x05, 0xa1, 0x01, 0x85, 0x01, 0x75,
                                       0x08, 0x95, 0x01, 0x09, 0x30, 0x81, 0x02, 0x85, 0x02,
                                       0x05, 0x07, 0x19, 0x04, 0x29, 0x0b, 0x81, 0x00, 0x85,
                                       0x03, 0x05, 0x01, 0x09, 0x31, 0x81, 0x02, 0xc0};

std::shared_ptr<const ReportDescriptor> parsed(const std::vector<std::uint8_t>& descriptor) {
  return std::make_shared<const ReportDescriptor>(ReportDescriptor::parse(descriptor));
}
RoutableDevice device(DeviceClass deviceClass, std::set<std::uint8_t> ordinary = {}) {
  return {{}, {deviceClass, "", std::move(ordinary)}, parsed(kMixed)};
}
UsageFilter naming(const std::vector<std::uint32_t>& usages) {
  std::vector<platform::NSDictionary::Entry> entries;
  for (const std::uint32_t usage : usages)
    entries.emplace_back(platform::NSNumber::numberWithLongLong(usage), platform::str("tag"));
  return UsageFilter(platform::NSDictionary::dictionaryWithEntries(std::move(entries)));
}
RoutingPlan shared(const RoutableDevice& device, const UsageFilter& usages = {},
                   bool isGranted = false) {
  return planFor(device, DeviceMode::Shared, usages, isGranted);
}
ReportIDs ids(std::initializer_list<std::size_t> each) {
  ReportIDs result;
  for (const std::size_t id : each) result.set(id);
  return result;
}

TEST(RoutingPlan, AnOrdinaryDeviceNeedsTheOrdinaryRight) {
  const auto plan = shared(device(DeviceClass::Ordinary));
  EXPECT_THAT(plan.actions, ElementsAre(kRouteAction));
  EXPECT_EQ(plan.reports, ids({1, 2, 3}));
}

/// What was judged is the descriptor: a report that it does not declare may carry anything.
TEST(RoutingPlan, AnOrdinaryDeviceGetsOnlyTheReportsThatItDeclares) {
  RoutableDevice ordinary = device(DeviceClass::Ordinary);
  EXPECT_EQ(shared(ordinary, {}, true).reports, ids({1, 2, 3})) << "a grant makes no difference";
  // X without an ID.
  ordinary.descriptor = parsed({0x05, 0x01, 0x09, 0x30, 0x75, 0x08, 0x95, 0x01, 0x81, 0x02});
  EXPECT_EQ(shared(ordinary).reports, ids({0}));
  // X before the first ID, output report 1, feature report 2, and padding as input report 3.
  ordinary.descriptor =
      parsed({0x05, 0x01, 0x09, 0x30, 0x75, 0x08, 0x95, 0x01, 0x81, 0x02, 0x85, 0x01, 0x09,
              0x31, 0x91, 0x02, 0x85, 0x02, 0x09, 0x32, 0xb1, 0x02, 0x85, 0x03, 0x81, 0x03});
  EXPECT_EQ(shared(ordinary).reports, ids({3}));
  ordinary.descriptor = nullptr;
  EXPECT_EQ(shared(ordinary).reports, ids({})) << "what does not parse declares nothing";
  EXPECT_THAT(shared(ordinary).actions, ElementsAre(kRouteAction));
}

TEST(RoutingPlan, ASensitiveDeviceNeedsTheRightForSensitiveOnes) {
  const auto plan = shared(device(DeviceClass::Sensitive));
  EXPECT_THAT(plan.actions, ElementsAre(kRouteSensitiveAction));
  EXPECT_EQ(plan.reports, router::allReports());
}

TEST(RoutingPlan, AGrantMakesASensitiveDeviceOrdinary) {
  const auto plan = shared(device(DeviceClass::Sensitive), {}, true);
  EXPECT_THAT(plan.actions, ElementsAre(kRouteAction));
  EXPECT_EQ(plan.reports, router::allReports());
}

TEST(RoutingPlan, OfADeviceThatMixesBothTheOrdinaryReportsNeedTheOrdinaryRight) {
  const auto plan = shared(device(DeviceClass::Sensitive, {1, 3}));
  EXPECT_THAT(plan.actions, ElementsAre(kRouteAction));
  EXPECT_EQ(plan.reports, ids({1, 3}));
}

TEST(RoutingPlan, NamingOrdinaryUsagesLimitsTheReportsToTheirs) {
  const auto plan = shared(device(DeviceClass::Sensitive, {1, 3}), naming({0x10030}));
  EXPECT_THAT(plan.actions, ElementsAre(kRouteAction));
  EXPECT_EQ(plan.reports, ids({1}));
}

TEST(RoutingPlan, NamingASensitiveUsageNeedsTheRightForSensitiveOnes) {
  const auto plan = shared(device(DeviceClass::Sensitive, {1, 3}), naming({0x70004, 0x10031}));
  EXPECT_THAT(plan.actions, ElementsAre(kRouteSensitiveAction));
  EXPECT_EQ(plan.reports, ids({2, 3}));
}

TEST(RoutingPlan, UsagesLimitAnOrdinaryAndAGrantedDeviceToo) {
  EXPECT_EQ(shared(device(DeviceClass::Ordinary), naming({0x10031})).reports, ids({3}));
  const auto granted = shared(device(DeviceClass::Sensitive), naming({0x70004}), true);
  EXPECT_EQ(granted.reports, ids({2}));
  EXPECT_THAT(granted.actions, ElementsAre(kRouteAction));
}

TEST(RoutingPlan, UsagesThatTheDeviceDoesNotHaveGetNothing) {
  const auto plan = shared(device(DeviceClass::Sensitive, {1, 3}), naming({0x90001}));
  EXPECT_THAT(plan.actions, ElementsAre(kRouteAction));
  EXPECT_EQ(plan.reports, ids({}));
}

TEST(RoutingPlan, ADescriptorThatDoesNotParseLimitsNothingAndStaysSensitive) {
  RoutableDevice unknown = device(DeviceClass::Sensitive);
  unknown.descriptor = nullptr;
  const auto plan = shared(unknown, naming({0x10030}));
  EXPECT_THAT(plan.actions, ElementsAre(kRouteSensitiveAction));
}

TEST(RoutingPlan, TakingADeviceIsARightOfItsOwn) {
  const auto alone = [](const RoutableDevice& device) {
    return planFor(device, DeviceMode::Exclusive, {}, false).actions;
  };
  EXPECT_THAT(alone(device(DeviceClass::Ordinary)),
              ElementsAre(kRouteAction, kTakeExclusivelyAction));
  EXPECT_THAT(alone(device(DeviceClass::Sensitive)),
              ElementsAre(kRouteSensitiveAction, kTakeExclusivelyAction));
}

}  // namespace
