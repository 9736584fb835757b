// SPDX-License-Identifier: Apache-2.0

// What an administrator's lasting grant is to the system's authority. The events:
//
//   granted             as for an ordinary device
//   taken back while    …, allowed, revoked, told
//     allowed
//   taken back while    …, denied, refused, withdrawn
//     asked
//   taken back, but     nothing
//     not needed
#include "SystemAuthorityFixture.h"

namespace {

using namespace systemauthoritytest;  // NOLINT: the fixture's

TEST_F(SystemAuthorityTest, AGrantSparesTheQuestion) {
  device_->classification.deviceClass = DeviceClass::Sensitive;
  answers_ = {no()};
  auto permit = ask();
  EXPECT_THAT(takeEvents()[1], "ask route-sensitive");
  granted_ = device_->identity;
  answers_ = {yes()};
  permit = ask();
  EXPECT_THAT(takeEvents(), ElementsAre("session c1", "ask route", "granted", "allowed"));
}

TEST_F(SystemAuthorityTest, APermissionEndsWithTheGrantThatItRestsOn) {
  device_->classification.deviceClass = DeviceClass::Sensitive;
  granted_ = device_->identity;
  answers_ = {yes(), yes()};
  const auto permit = ask();
  const auto other = ask();
  takeEvents();
  authority_->review();
  EXPECT_THAT(takeEvents(), ElementsAre()) << "it still stands";
  granted_ = {};
  authority_->review();
  const std::string reason = "the administrator's grant no longer stands";
  EXPECT_THAT(takeEvents(), ElementsAre("revoked: " + reason, "told: " + reason,
                                        "revoked: " + reason, "told: " + reason));
  authority_->review();
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, AQuestionEndsWithTheGrantThatItRestsOn) {
  device_->classification.deviceClass = DeviceClass::Sensitive;
  granted_ = device_->identity;
  const auto permit = ask();
  takeEvents();
  granted_ = {};
  authority_->review();
  const std::string reason = "the administrator's grant no longer stands";
  EXPECT_THAT(takeEvents(),
              ElementsAre("denied: " + reason, "refused: not permitted: " + reason, "withdrawn"));
  sayLast(yes());
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, AGrantThatWasNotNeededMayEnd) {
  granted_ = device_->identity;
  answers_ = {yes(), yes()};
  const auto ordinary = ask();
  // Of a device that mixes both, X alone needs none.
  device_->classification = {DeviceClass::Sensitive, "", {1}};
  router::RoutingRequest request;
  request.usages = router::UsageFilter(platform::NSDictionary::dictionaryWithEntries(
      {{platform::NSNumber::numberWithLongLong(0x10030), platform::str("tag")}}));
  const auto named = ask(request);
  takeEvents();
  granted_ = {};
  authority_->review();
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(SystemAuthorityTest, AGrantThatEndsAfterThePermissionEndsNothing) {
  device_->classification.deviceClass = DeviceClass::Sensitive;
  granted_ = device_->identity;
  answers_ = {yes()};
  auto permit = ask();
  permit.reset();
  takeEvents();
  granted_ = {};
  authority_->review();
  EXPECT_THAT(takeEvents(), ElementsAre());
}

}  // namespace
