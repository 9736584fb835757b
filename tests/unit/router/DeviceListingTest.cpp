// SPDX-License-Identifier: Apache-2.0

#include "router/control/DeviceListing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace {

using platform::NSDictionary;
using platform::str;
using router::DeviceClass;
using router::DevicePermission;
using router::ListedDevice;
using testing::ElementsAre;

ListedDevice pen() {
  ListedDevice listed;
  listed.device.registryEntryID = 0x1ffffffff;
  listed.device.name = "Ein Stift";
  listed.device.bus = 3;
  listed.device.vendor = 0x56a;
  listed.device.product = 0x2f;
  listed.device.source = "hidraw0";
  listed.device.physicalPath = "usb-0000:00:14.0-2/input0";
  listed.device.unique = "A1";
  listed.device.interface = 0;
  listed.deviceClass = DeviceClass::Sensitive;
  listed.reason = "it has keys";
  listed.ordinaryReports = {0, 2, 255};
  listed.collections = {{1, 2}, {0xd, 2}};
  listed.permission = DevicePermission::Partly;
  listed.explanation = "you may";
  return listed;
}

TEST(DeviceListing, IsReadAsItWasWritten) {
  ListedDevice plain;
  plain.device.name = "Mouse";
  plain.permission = DevicePermission::Yes;
  ListedDevice ordinary = pen();
  ordinary.deviceClass = DeviceClass::Ordinary;
  ordinary.ordinaryReports.clear();
  const std::vector<ListedDevice> devices{pen(), plain, ordinary};
  EXPECT_EQ(router::listedDevicesIn(*router::dictionaryOf(devices)), devices);
}

TEST(DeviceListing, EachPermissionHasAName) {
  for (const auto permission :
       {DevicePermission::Yes, DevicePermission::Partly, DevicePermission::Administrator,
        DevicePermission::No, DevicePermission::Unknown}) {
    ListedDevice listed;
    listed.permission = permission;
    EXPECT_EQ(router::listedDevicesIn(*router::dictionaryOf({listed})).at(0).permission,
              permission);
  }
}

TEST(DeviceListing, WhatADeviceCallsItselfIsOneLine) {
  ListedDevice listed;
  listed.device.name = "a\nb\x1b[2J";
  EXPECT_EQ(router::listedDevicesIn(*router::dictionaryOf({listed})).at(0).device.name,
            "a\\x0ab\\x1b[2J");
}

TEST(DeviceListing, WhatIsNotUnderstoodIsTheWorseCase) {
  EXPECT_TRUE(router::listedDevicesIn(*NSDictionary::dictionary()).empty());
  const auto strange = NSDictionary::dictionaryWithEntries(
      {{str("Class"), str("harmless")},
       {str("Permission"), str("surely")},
       {str("OrdinaryReports"),
        platform::NSArray::arrayWithObjects(
            {str("7"), platform::NSNumber::numberWithUnsignedLongLong(256)})}});
  const auto devices = router::listedDevicesIn(*NSDictionary::dictionaryWithEntries(
      {{str("Devices"), platform::NSArray::arrayWithObjects({str("x"), strange})}}));
  ASSERT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices[0].deviceClass, DeviceClass::Sensitive);
  EXPECT_EQ(devices[0].permission, DevicePermission::Unknown);
  EXPECT_THAT(devices[0].ordinaryReports, ElementsAre());
}

}  // namespace
