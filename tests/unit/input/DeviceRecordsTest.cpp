// SPDX-License-Identifier: Apache-2.0

#include "input/DeviceRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::str;
using testing::ElementsAre;
using wlhid::Device;
using wlhid::deviceIn;

std::shared_ptr<NSNumber> number(std::uint64_t value) {
  return NSNumber::numberWithUnsignedLongLong(value);
}

TEST(DeviceRecords, AreReadAsTheDirectoryWritesThem) {
  const auto usage = NSDictionary::dictionaryWithEntries(
      {{str("UsagePage"), number(0xd)}, {str("Usage"), number(2)}});
  const Device device = deviceIn(*NSDictionary::dictionaryWithEntries(
      {{str("Device"), number(0x1ffffffff)},
       {str("Name"), str("Ein Stift")},
       {str("Bus"), number(3)},
       {str("Vendor"), number(0x56a)},
       {str("Product"), number(0x2f)},
       {str("Source"), str("hidraw0")},
       {str("Path"), str("usb-1")},
       {str("Unique"), str("A1")},
       {str("Interface"), number(0)},
       {str("Collections"), NSArray::arrayWithObjects({usage})},
       {str("Class"), str("sensitive")},
       {str("Reason"), str("it has keys")},
       {str("OrdinaryReports"), NSArray::arrayWithObjects({number(2), number(255)})},
       {str("Permission"), str("partly")},
       {str("Explanation"), str("you may")}}));
  EXPECT_EQ(device, (Device{0x1ffffffff,
                            "Ein Stift",
                            3,
                            0x56a,
                            0x2f,
                            "hidraw0",
                            "usb-1",
                            "A1",
                            0,
                            {{0xd, 2}},
                            wlhid::DeviceClass::Sensitive,
                            "it has keys",
                            {2, 255},
                            wlhid::Permission::Partly,
                            "you may"}));
}

TEST(DeviceRecords, WhatIsMissingOrNotUnderstoodIsEmptyOrTheWorseCase) {
  EXPECT_EQ(deviceIn(*NSDictionary::dictionary()), Device());
  const Device device = deviceIn(*NSDictionary::dictionaryWithEntries(
      {{str("Device"), str("x")},
       {str("Class"), str("harmless")},
       {str("Permission"), str("surely")},
       {str("Collections"), NSArray::arrayWithObjects({str("x")})}}));
  EXPECT_EQ(device.id, 0U);
  EXPECT_EQ(device.deviceClass, wlhid::DeviceClass::Sensitive);
  EXPECT_EQ(device.permission, wlhid::Permission::Unknown);
  EXPECT_TRUE(device.collections.empty());
}

TEST(DeviceRecords, CriteriaHaveTheKeysThatAreGiven) {
  EXPECT_EQ(wlhid::arrayOf({}), nullptr);
  const auto array = wlhid::arrayOf({{.vendor = 1, .usagePage = 0xd}});
  ASSERT_EQ(array->count(), 1U);
  const auto dictionary = platform::objectCast<NSDictionary>(array->objectAtIndex(0));
  ASSERT_NE(dictionary, nullptr);
  EXPECT_EQ(dictionary->count(), 2U);
  EXPECT_TRUE(dictionary->objectForKey("Vendor")->isEqual(number(1)));
  EXPECT_TRUE(dictionary->objectForKey("UsagePage")->isEqual(number(0xd)));
}

}  // namespace
