// SPDX-License-Identifier: Apache-2.0

#include "router/RouterErrors.h"

#include <gtest/gtest.h>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSString.h"
#include "platform/kit/KQIOObject.h"

namespace {

using platform::KQIOObject;
using platform::NSError;
using platform::str;
using router::IOReturn;

std::string descriptionIn(const NSError& error) {
  return error.userInfo()->objectForKey(platform::NSLocalizedDescriptionKey)->description();
}

TEST(RouterErrors, CodesAreThoseThatClientsKnow) {
  const std::pair<IOReturn, std::uint32_t> codes[] = {{IOReturn::NoDevice, 0xE00002C0},
                                                      {IOReturn::BadArgument, 0xE00002C2},
                                                      {IOReturn::ExclusiveAccess, 0xE00002C5},
                                                      {IOReturn::IOError, 0xE00002CA},
                                                      {IOReturn::Busy, 0xE00002D5},
                                                      {IOReturn::NotPermitted, 0xE00002E2},
                                                      {IOReturn::Underrun, 0xE00002E7},
                                                      {IOReturn::Aborted, 0xE00002EB}};
  for (const auto& [code, bits] : codes) {
    const std::int64_t expected = static_cast<std::int32_t>(bits);
    EXPECT_EQ(router::routerError(code, "x")->code(), expected) << std::hex << bits;
  }
}

TEST(RouterErrors, AnErrorHasADomainAndOneLineOfDescription) {
  const auto error = router::routerError(IOReturn::IOError, "a\nb\x1b[");
  EXPECT_EQ(error->domain()->UTF8String(), "HIDEventRouterDomain");
  EXPECT_EQ(descriptionIn(*error), "a\\x0ab\\x1b[");
  EXPECT_EQ(error->userInfo()->objectForKey(router::WLHIDDeviceKey), nullptr);
}

TEST(RouterErrors, AnErrorOfADeviceNamesIt) {
  const auto error = router::routerError(IOReturn::NoDevice, "none", 0x123456789);
  const auto device =
      platform::objectCast<KQIOObject>(error->userInfo()->objectForKey(router::WLHIDDeviceKey));
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->registryEntryID(), 0x123456789U);
  EXPECT_EQ(descriptionIn(*error), "none");
}

TEST(RouterErrors, CausesThatAClientCanActOnAreTold) {
  const auto named = [](std::errc error) {
    return router::ioReturnOf(std::make_error_code(error));
  };
  EXPECT_EQ(named(std::errc::permission_denied), IOReturn::NotPermitted);
  EXPECT_EQ(named(std::errc::operation_not_permitted), IOReturn::NotPermitted);
  EXPECT_EQ(named(std::errc::device_or_resource_busy), IOReturn::ExclusiveAccess);
  EXPECT_EQ(named(std::errc::no_such_device), IOReturn::NoDevice);
  EXPECT_EQ(named(std::errc::no_such_file_or_directory), IOReturn::IOError);
  EXPECT_EQ(router::ioReturnOf({}), IOReturn::IOError);
}

TEST(RouterErrors, TheEndOfARecordingIsKnownByDomainAndCode) {
  EXPECT_TRUE(router::isEndOfRecording(*router::routerError(IOReturn::Underrun, "x")));
  EXPECT_FALSE(router::isEndOfRecording(*router::routerError(IOReturn::Busy, "x")));
  const auto code = static_cast<std::int64_t>(IOReturn::Underrun);
  EXPECT_FALSE(router::isEndOfRecording(
      *NSError::errorWithDomain_code_userInfo(str("Elsewhere"), code, nullptr)));
}

}  // namespace
