// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/InputWords.h"

#include <gtest/gtest.h>

#include "WLHIDAccess/InputDevices.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/foundation/NSDictionary.h"

namespace {

using platform::NSError;
using platform::str;
using wlhid::Error;
using wlhid::statusName;

TEST(StatusName, NamesEveryStatusAndNumbersOthers) {
  EXPECT_EQ(statusName(WLHIDEventRouterClientStatusIdle), "idle");
  EXPECT_EQ(statusName(WLHIDEventRouterClientStatusRouterUnavailable), "router not installed");
  EXPECT_EQ(statusName(WLHIDEventRouterClientStatusOpening), "opening");
  EXPECT_EQ(statusName(WLHIDEventRouterClientStatusRouting), "routing");
  EXPECT_EQ(statusName(WLHIDEventRouterClientStatusFailed), "failed");
  EXPECT_EQ(statusName(static_cast<WLHIDEventRouterClientStatus>(7)), "status 7");
}

TEST(Error, HasTheWordsThatCameWithIt) {
  const Error error(NSError::errorWithDomain_code_userInfo(
      str(HIDEventRouterDomain), -536870174,
      platform::NSDictionary::dictionaryWithEntries(
          {{str(platform::NSLocalizedDescriptionKey), str("not permitted: nobody may")}})));
  EXPECT_STREQ(error.what(), "not permitted: nobody may");
  EXPECT_EQ(error.domain(), "HIDEventRouterDomain");
  EXPECT_EQ(error.code(), -536870174);
}

/// Each code that the router can answer has words of its own, which say what to do.
TEST(Error, HasWordsOfItsOwnForEveryCode) {
  for (const std::int64_t code :
       {-1LL, -536870208LL, -536870206LL, -536870203LL, -536870198LL, -536870187LL, -536870174LL,
        -536870169LL, -536870165LL, -536870160LL}) {
    const Error error(
        NSError::errorWithDomain_code_userInfo(str(HIDEventRouterDomain), code, nullptr));
    EXPECT_EQ(std::string(error.what()).find("HIDEventRouterDomain"), std::string::npos)
        << error.what();
  }
}

TEST(Error, WithoutAReasonSaysSo) {
  EXPECT_STREQ(Error(nullptr).what(), "No reason was given.");
}

TEST(Names, OfPermissionsAndClasses) {
  EXPECT_STREQ(nameOf(wlhid::Permission::Partly), "partly");
  EXPECT_STREQ(nameOf(wlhid::DeviceClass::Sensitive), "sensitive");
  EXPECT_EQ((wlhid::Usage{1, 0x30}.name()), "X");
}

}  // namespace
