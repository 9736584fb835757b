// SPDX-License-Identifier: Apache-2.0

#include "router/policy/WantedReports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "DeviceClassCases.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "router/ReportDecoder.h"

namespace {

using router::ReportDescriptor;
using router::UsageFilter;
using Reports = std::set<std::uint8_t>;

UsageFilter filterFor(const std::vector<std::uint32_t>& usages) {
  std::vector<platform::NSDictionary::Entry> entries;
  for (const std::uint32_t usage : usages)
    entries.emplace_back(platform::NSNumber::numberWithUnsignedLongLong(usage),
                         platform::str("tag"));
  return UsageFilter(platform::NSDictionary::dictionaryWithEntries(std::move(entries)));
}

std::optional<Reports> wanted(const std::string& hex, const std::vector<std::uint32_t>& usages) {
  return router::wantedReports(ReportDescriptor::parse(bytes(hex)), filterFor(usages));
}

// Buttons in report 1, X and Y in report 2, volume in report 3.
constexpr const char* kThree =
    "85 01 05 09 19 01 29 08 15 00 25 01 75 01 95 08 81 02"
    " 85 02 05 01 09 30 09 31 75 08 95 02 81 02"
    " 85 03 05 0c 09 e9 09 ea 15 01 25 02 95 01 81 00";

TEST(WantedReports, AreAllWithoutAFilter) {
  EXPECT_EQ(wanted(kThree, {}), std::nullopt);
  EXPECT_EQ(router::wantedReports(ReportDescriptor::parse({}), UsageFilter()), std::nullopt);
}

TEST(WantedReports, AreThoseThatCarryANamedUsage) {
  EXPECT_EQ(wanted(kThree, {0x00090001}), Reports{1});
  EXPECT_EQ(wanted(kThree, {0x00090008}), Reports{1});
  EXPECT_EQ(wanted(kThree, {0x00090009}), Reports{});
  EXPECT_EQ(wanted(kThree, {0x00010031}), Reports{2});
  EXPECT_EQ(wanted(kThree, {0x00010031, 0x00090004, 0x00070004}), (Reports{1, 2}));
  EXPECT_EQ(wanted(kThree, {0x00070004}), Reports{});
}

TEST(WantedReports, CountWhatAnArrayCanSelect) {
  EXPECT_EQ(wanted(kThree, {0x000c00e9}), Reports{3});
  EXPECT_EQ(wanted(kThree, {0x000c00ea}), Reports{3});
  // A slot that selects nothing has usage 0 of the page.
  EXPECT_EQ(wanted(kThree, {0x000c0000}), Reports{3});
  // The second usage lies beyond the values.
  const std::string one = "05 0c 09 e9 09 ea 15 01 25 01 75 08 95 01 81 00";
  EXPECT_EQ(wanted(one, {0x000c00e9}), Reports{0});
  EXPECT_EQ(wanted(one, {0x000c00ea}), Reports{});
}

TEST(WantedReports, CountOnlyUsagesThatAFieldHas) {
  // Two fields and three usages; one usage and three fields.
  EXPECT_EQ(wanted("05 09 09 01 09 02 09 03 75 01 95 02 81 02", {0x00090003}), Reports{});
  EXPECT_EQ(wanted("05 09 09 01 09 02 09 03 75 01 95 02 81 02", {0x00090002}), Reports{0});
  EXPECT_EQ(wanted("05 09 09 01 75 01 95 03 81 02", {0x00090001}), Reports{0});
  // Without usages: usage 0 of the page in force.
  EXPECT_EQ(wanted("05 09 75 01 95 03 81 02", {0x00090000}), Reports{0});
  EXPECT_EQ(wanted("05 09 75 01 95 03 81 02", {0x00090001}), Reports{});
  // Alternatives are no value's usage.
  EXPECT_EQ(wanted("05 09 a9 01 09 01 09 02 a9 00 75 01 95 01 81 02", {0x00090002}), Reports{});
}

TEST(WantedReports, LeaveOutWhatIsNotDelivered) {
  EXPECT_EQ(wanted("05 09 09 01 75 08 95 01 81 03", {0x00090001}), Reports{});  // constant
  EXPECT_EQ(wanted("05 09 09 01 75 08 95 01 91 02", {0x00090001}), Reports{});
  EXPECT_EQ(wanted("05 09 09 01 75 08 95 01 b1 02", {0x00090001}), Reports{});
  // Before the first ID, where every report has one.
  EXPECT_EQ(wanted("05 09 09 01 75 08 95 01 81 02 85 02 09 02 81 02", {0x00090001}), Reports{});
  EXPECT_EQ(wanted("05 09 09 01 75 08 95 01 81 02 85 02 09 01 81 02", {0x00090001}), Reports{2});
}

/// Some of the usages that the descriptor names, and others.
std::vector<std::uint32_t> someUsages(const ReportDescriptor& descriptor, std::mt19937* random) {
  std::vector<std::uint32_t> usages = {0x00070004};
  for (const auto& field : descriptor.fields()) {
    for (const router::UsageRange& range : field.everyUsage)
      if ((*random)() % 3 == 0)
        usages.push_back(range.first + (*random)() % (range.last - range.first + 1));
    if ((*random)() % 8 == 0) usages.push_back(field.usagePage << 16U);
  }
  return usages;
}

TEST(WantedReports, NoValueThatPassesTheFilterIsInAnotherReport) {
  std::mt19937 random(7);
  std::size_t passed = 0;
  for (const DeviceClassCase& listed : deviceClassCases()) {
    if (listed.expected.reason.starts_with("its report descriptor")) continue;
    if (listed.name.starts_with("unreadable")) continue;
    SCOPED_TRACE(listed.name);
    const auto descriptor = std::make_shared<const ReportDescriptor>(
        ReportDescriptor::parse(listed.facts.reportDescriptor));
    const UsageFilter filter = filterFor(someUsages(*descriptor, &random));
    const auto reports = router::wantedReports(*descriptor, filter);
    ASSERT_TRUE(reports.has_value());
    router::ReportDecoder decoder(descriptor);
    for (int i = 0; i < 64; ++i) {
      std::vector<std::uint8_t> report(80);
      for (std::uint8_t& byte : report) byte = static_cast<std::uint8_t>(random() % 8);
      for (const auto& value : decoder.decode(report)) {
        if (!filter.wants(value)) continue;
        ++passed;
        ASSERT_TRUE(reports->contains(static_cast<std::uint8_t>(value.reportID)));
      }
    }
  }
  EXPECT_GT(passed, 1000U);
}

TEST(UsageFilterRanges, AreWantedByOneUsageInThem) {
  const UsageFilter filter = filterFor({0x00090004, 0x00090010});
  EXPECT_TRUE(filter.wantsAnyOf(0x00090001, 0x00090004));
  EXPECT_TRUE(filter.wantsAnyOf(0x00090004, 0x00090008));
  EXPECT_TRUE(filter.wantsAnyOf(0x00090010, 0x00090010));
  EXPECT_FALSE(filter.wantsAnyOf(0x00090005, 0x0009000f));
  EXPECT_FALSE(filter.wantsAnyOf(0x00090011, 0xffffffff));
  EXPECT_TRUE(UsageFilter().wantsAnyOf(1, 1));
}

}  // namespace
