// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DeviceFilter.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::str;
using router::DeviceFilter;
using router::ListedDevice;

constexpr std::size_t kLimit = 8;

using Numbers = std::vector<std::pair<std::string_view, std::uint64_t>>;

std::shared_ptr<NSArray> criteria(const std::vector<Numbers>& all) {
  std::vector<std::shared_ptr<NSObject>> list;
  for (const Numbers& each : all) {
    std::vector<NSDictionary::Entry> entries;
    for (const auto& [key, number] : each)
      entries.emplace_back(str(key), NSNumber::numberWithUnsignedLongLong(number));
    list.push_back(NSDictionary::dictionaryWithEntries(std::move(entries)));
  }
  return NSArray::arrayWithObjects(std::move(list));
}

/// A pen that is also a mouse.
ListedDevice pen() {
  ListedDevice listed;
  listed.device.registryEntryID = 0x10007;
  listed.device.vendor = 0x56a;
  listed.device.product = 0x2f;
  listed.collections = {{1, 2}, {0xd, 2}};
  return listed;
}

bool admits(const std::vector<Numbers>& matching, const std::vector<Numbers>& excluding = {}) {
  return DeviceFilter(criteria(matching), criteria(excluding), kLimit).admits(pen());
}

TEST(DeviceFilter, WithoutCriteriaEveryDeviceIsWanted) {
  EXPECT_TRUE(DeviceFilter().admits(pen()));
  EXPECT_TRUE(DeviceFilter(nullptr, nullptr, kLimit).admits(pen()));
  EXPECT_TRUE(admits({}));
}

TEST(DeviceFilter, ACriterionIsMetAsAWhole) {
  EXPECT_TRUE(admits({{{"Vendor", 0x56a}}}));
  EXPECT_TRUE(admits({{{"Vendor", 0x56a}, {"Product", 0x2f}, {"Device", 0x10007}}}));
  EXPECT_FALSE(admits({{{"Vendor", 0x56a}, {"Product", 0x30}}}));
  EXPECT_FALSE(admits({{{"Device", 0x10008}}}));
}

TEST(DeviceFilter, UsagePageAndUsageAreThoseOfOneCollection) {
  EXPECT_TRUE(admits({{{"UsagePage", 0xd}, {"Usage", 2}}}));
  EXPECT_TRUE(admits({{{"UsagePage", 1}}}));
  EXPECT_TRUE(admits({{{"Usage", 2}}}));
  EXPECT_FALSE(admits({{{"UsagePage", 1}, {"Usage", 6}}}));
  EXPECT_FALSE(admits({{{"UsagePage", 0xd}, {"Usage", 2}, {"Vendor", 1}}}));
}

TEST(DeviceFilter, OneOfSeveralCriteriaIsEnough) {
  EXPECT_TRUE(admits({{{"Vendor", 1}}, {{"Vendor", 0x56a}}}));
  EXPECT_FALSE(admits({{{"Vendor", 1}}, {{"Vendor", 2}}}));
}

TEST(DeviceFilter, WhatIsExcludedIsNotWanted) {
  EXPECT_FALSE(admits({}, {{{"UsagePage", 1}, {"Usage", 2}}}));
  EXPECT_FALSE(admits({{{"Vendor", 0x56a}}}, {{{"Product", 0x2f}}}));
  EXPECT_TRUE(admits({{{"Vendor", 0x56a}}}, {{{"Product", 0x30}}}));
}

std::string refusalOf(const std::shared_ptr<NSArray>& matching,
                      const std::shared_ptr<NSArray>& excluding = nullptr) {
  try {
    const DeviceFilter filter(matching, excluding, kLimit);
    return "accepted";
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(DeviceFilter, WhatIsNotUnderstoodIsRefused) {
  EXPECT_EQ(refusalOf(NSArray::arrayWithObjects({str("x")})), "a criterion is not a dictionary");
  EXPECT_EQ(refusalOf(NSArray::arrayWithObjects(
                {NSDictionary::dictionaryWithEntries({{str("Vendor"), str("x")}})})),
            "a value in a criterion is not a number");
  EXPECT_EQ(refusalOf(criteria({{{"Colour\n", 3}}})), "unknown criterion Colour\\x0a");
}

TEST(DeviceFilter, ThereAreSoManyCriteriaAtMost) {
  const std::vector<Numbers> four(4);
  const std::vector<Numbers> five(5);
  EXPECT_EQ(refusalOf(criteria(four), criteria(four)), "accepted");
  EXPECT_EQ(refusalOf(criteria(four), criteria(five)), "more than 8 criteria");
}

}  // namespace
