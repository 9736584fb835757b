// SPDX-License-Identifier: Apache-2.0

#include "RoutedDeviceFixture.h"

namespace {

using namespace routeddevicetest;  // NOLINT: the fixture of this program only
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(RoutedDeviceTest, EveryClientGetsEachReportWithItsValues) {
  const auto d = device();
  Client a;
  Client b;
  enter(*d, a);
  enter(*d, b);
  feed_.report("07 02 ff");
  feed_.report("07 01");  // too short for X
  feed_.report("09 55");  // no such report
  for (Client* client : {&a, &b}) {
    EXPECT_THAT(client->sink->linesOnceThereAre(3),
                ElementsAre("report 7 07 02 ff: 9/1=0 9/2=1 1/48=-1", "report 7 07 01: 9/1=1 9/2=0",
                            "report 9 09 55"));
    EXPECT_EQ(client->subscription->delivered(), 3U);
    EXPECT_EQ(client->subscription->lost(), 0U);
    d->remove(client->subscription);
  }
  EXPECT_EQ(opened_, 1);
}

TEST_F(RoutedDeviceTest, WhoAsksIsToldWhenItsReportsCameFromThenOn) {
  Client client;
  const auto d = device();
  enter(*d, client);
  feed_.report("07 01 00");
  client.sink->linesOnceThereAre(1);
  EXPECT_EQ(client.subscription->arrivals(), (router::ReportArrivals{2, {}}));
  const auto before = std::chrono::steady_clock::now().time_since_epoch();
  feed_.report("07 02 00");
  feed_.report("07 03 00");
  client.sink->linesOnceThereAre(3);
  const auto arrivals = client.subscription->arrivals();
  EXPECT_EQ(arrivals.first, 2U);
  ASSERT_EQ(arrivals.times.size(), 2U);
  EXPECT_GE(arrivals.times[0], before);
  EXPECT_GE(arrivals.times[1], arrivals.times[0]);
  EXPECT_LE(arrivals.times[1], std::chrono::steady_clock::now().time_since_epoch());
  d->remove(client.subscription);
}

TEST_F(RoutedDeviceTest, AFilterLimitsTheValuesButNotTheReports) {
  const auto d = device();
  const auto tags = NSDictionary::dictionaryWithEntries(
      {{NSNumber::numberWithUnsignedLongLong(1 << 16 | 0x30), platform::str("x")}});
  Client filtered(DeviceMode::Shared, UsageFilter(tags));
  Client plain;
  enter(*d, filtered);
  enter(*d, plain);
  feed_.report("07 02 05");
  feed_.report("07 01");
  EXPECT_THAT(filtered.sink->linesOnceThereAre(2),
              ElementsAre("report 7 07 02 05: 1/48=5", "report 7 07 01"));
  EXPECT_THAT(plain.sink->linesOnceThereAre(2),
              ElementsAre("report 7 07 02 05: 9/1=0 9/2=1 1/48=5", "report 7 07 01: 9/1=1 9/2=0"));
  d->remove(filtered.subscription);
  d->remove(plain.subscription);
}

TEST_F(RoutedDeviceTest, NothingComesBeforeTheBeginningOrAfterTheEnd) {
  const auto d = device();
  Client early;
  Client late;
  // The waiting client has the first place: it is skipped before the other one gets the report.
  ASSERT_EQ(d->admit(late.subscription), nullptr);
  enter(*d, early);
  feed_.report("07 01");
  early.sink->linesOnceThereAre(1);
  d->begin(late.subscription);
  feed_.report("07 02");
  early.sink->linesOnceThereAre(2);
  late.sink->linesOnceThereAre(1);
  d->remove(early.subscription);
  feed_.report("07 03");
  EXPECT_THAT(late.sink->linesOnceThereAre(2),
              ElementsAre("report 7 07 02: 9/1=0 9/2=1", "report 7 07 03: 9/1=1 9/2=1"));
  EXPECT_EQ(early.sink->lines().size(), 2U);
  d->remove(late.subscription);
}

/// Whoever may no longer have the input may learn it while the device is being opened.
TEST_F(RoutedDeviceTest, WhatWasRevokedBeforeItsBeginningGetsNothing) {
  const auto d = device();
  Client revoked;
  Client other;
  ASSERT_EQ(d->admit(revoked.subscription), nullptr);
  revoked.subscription->revoke();
  d->begin(revoked.subscription);
  enter(*d, other);
  feed_.report("07 01");
  other.sink->linesOnceThereAre(1);
  EXPECT_THAT(revoked.sink->lines(), ElementsAre()) << "it comes first among the two";
  d->remove(revoked.subscription);
  d->remove(other.subscription);
}

TEST_F(RoutedDeviceTest, IsOpenedAnewEachTimeItsClientsGoFromNoneToOne) {
  const auto d = device();
  Client a;
  Client b;
  EXPECT_EQ(opened_, 0);
  enter(*d, a);
  enter(*d, b);
  EXPECT_EQ(opened_, 1);
  d->remove(a.subscription);
  d->remove(b.subscription);
  d->remove(b.subscription);  // no longer has a place: no effect
  enter(*d, a);
  EXPECT_EQ(opened_, 2);
  feed_.report("07 01");
  a.sink->linesOnceThereAre(1);
  EXPECT_THAT(b.sink->lines(), IsEmpty());
  d->remove(a.subscription);
}

TEST_F(RoutedDeviceTest, AnExclusiveClientIsAlone) {
  const auto d = device();
  Client shared;
  Client exclusive(DeviceMode::Exclusive);
  Client second(DeviceMode::Exclusive);
  enter(*d, shared);
  EXPECT_EQ(refusal(*d, exclusive), -536870203);
  d->remove(shared.subscription);
  enter(*d, exclusive);
  EXPECT_EQ(refusal(*d, shared), -536870203);
  EXPECT_EQ(refusal(*d, second), -536870203);
  const auto error = d->admit(shared.subscription);
  EXPECT_EQ(error->domain()->UTF8String(), "HIDEventRouterDomain");
  EXPECT_EQ(error->userInfo()->objectForKey(platform::NSLocalizedDescriptionKey)->description(),
            "the device \"Mouse\" is in use by another client");
  d->remove(exclusive.subscription);
  enter(*d, shared);
  d->remove(shared.subscription);
}

TEST_F(RoutedDeviceTest, WhenItGoesAwayEveryoneIsToldAndItStaysAway) {
  const auto d = device();
  Client a;
  Client b;
  Client placed;
  enter(*d, a);
  enter(*d, b);
  ASSERT_EQ(d->admit(placed.subscription), nullptr);
  feed_.report("07 01");
  feed_.goAway();
  for (Client* client : {&a, &b, &placed}) {
    client->sink->awaitFarewell();
    EXPECT_EQ(client->sink->farewells(), 1);
  }
  EXPECT_EQ(a.sink->lines().size(), 1U);
  Client late;
  EXPECT_EQ(refusal(*d, late), -536870208);
  for (Client* client : {&a, &b, &placed}) d->remove(client->subscription);
  EXPECT_EQ(refusal(*d, late), -536870208);
  EXPECT_EQ(opened_, 1);
  EXPECT_THAT(log(), ElementsAre("device 0x100000001 (Mouse) has gone away"));
}

TEST_F(RoutedDeviceTest, WhatWasSentIsTakenBeforeTheFarewell) {
  for (const bool waits : {false, true}) {
    waits_ = waits;
    const auto d = device();
    Client client;
    enter(*d, client);
    feed_.report("07 01");
    client.sink->linesOnceThereAre(1);
    client.sink->setUnsent(1);
    feed_.goAway();
    client.sink->awaitWaits(waits ? 3 : 2);
    EXPECT_EQ(client.sink->farewells(), 0);
    client.sink->setUnsent(0);
    client.sink->awaitFarewell();
    d->remove(client.subscription);
  }
}

TEST_F(RoutedDeviceTest, ADeviceThatFailsMayBeTriedAgain) {
  const auto d = device();
  Client a;
  enter(*d, a);
  feed_.fail();
  a.sink->awaitFarewell();
  EXPECT_EQ(a.sink->endings(), 0);
  EXPECT_THAT(log(), ElementsAre("device 0x100000001: the cable is cut"));
  d->remove(a.subscription);
  Client b;
  enter(*d, b);
  feed_.report("07 01");
  b.sink->linesOnceThereAre(1);
  EXPECT_EQ(opened_, 2);
  d->remove(b.subscription);
}

TEST_F(RoutedDeviceTest, ARecordingThatHasEndedIsHeardFromItsBeginningByTheNext) {
  const auto d = device();
  Client a;
  Client placed;
  enter(*d, a);
  ASSERT_EQ(d->admit(placed.subscription), nullptr);
  feed_.report("07 01");
  a.sink->linesOnceThereAre(1);
  feed_.end();
  placed.sink->awaitFarewell();
  EXPECT_EQ(a.sink->endings(), 1);
  EXPECT_EQ(a.sink->farewells(), 1);
  // It has received nothing, so it may come again and receive everything.
  EXPECT_EQ(placed.sink->endings(), 0);
  EXPECT_THAT(log(), ElementsAre("device 0x100000001 (Mouse): the recording has been played to its "
                                 "end"));
  Client next(DeviceMode::Exclusive);  // no client has a place any more
  enter(*d, next);
  EXPECT_EQ(opened_, 2);
  feed_.report("07 02");
  next.sink->linesOnceThereAre(1);
  EXPECT_EQ(a.sink->lines().size(), 1U);
  d->remove(a.subscription);
  d->remove(placed.subscription);
  feed_.report("07 03");
  next.sink->linesOnceThereAre(2);
  d->remove(next.subscription);
}

TEST_F(RoutedDeviceTest, WhoTakesTheEndOfARecordingSlowlyHoldsUpNobody) {
  waits_ = true;
  const auto d = device();
  Client slow;
  enter(*d, slow);
  feed_.report("07 01");
  slow.sink->linesOnceThereAre(1);
  slow.sink->setUnsent(1);
  feed_.end();
  slow.sink->awaitWaits(3);
  Client next(DeviceMode::Exclusive);
  enter(*d, next);
  feed_.report("07 02");
  next.sink->linesOnceThereAre(1);
  EXPECT_EQ(slow.sink->farewells(), 0);
  slow.sink->setUnsent(0);
  slow.sink->awaitFarewell();
  EXPECT_EQ(slow.sink->endings(), 1);
  d->remove(next.subscription);
}

TEST_F(RoutedDeviceTest, WhoLeavesDuringTheEndIsNotTold) {
  const auto d = device();
  Client leaving;
  Client other;
  enter(*d, leaving);
  enter(*d, other);
  feed_.report("07 01");
  other.sink->linesOnceThereAre(1);
  leaving.sink->setUnsent(1);
  feed_.end();
  leaving.sink->awaitWaits(2);
  d->remove(leaving.subscription);
  other.sink->awaitFarewell();
  EXPECT_EQ(leaving.sink->endings(), 0);
  EXPECT_EQ(other.sink->endings(), 1);
}

TEST_F(RoutedDeviceTest, ItMayBeDestroyedWhileSomebodyTakesTheEnd) {
  Client slow;
  {
    const auto d = device();
    enter(*d, slow);
    feed_.report("07 01");
    slow.sink->linesOnceThereAre(1);
    slow.sink->setUnsent(1);
    feed_.end();
    slow.sink->awaitWaits(2);
  }
  EXPECT_EQ(slow.sink->farewells(), 1);
}

TEST_F(RoutedDeviceTest, WhatCannotBeOpenedIsAnsweredWithItsReasonAndMayBeTriedAgain) {
  const auto d = device();
  Client client(DeviceMode::Exclusive);
  onOpen_ = []() -> std::unique_ptr<OpenDevice> {
    throw DeviceError("a.hid: cannot be read", std::make_error_code(std::errc::permission_denied));
  };
  EXPECT_EQ(refusal(*d, client), -536870174);
  onOpen_ = []() -> std::unique_ptr<OpenDevice> { throw DeviceError("a.hid:3: nonsense"); };
  EXPECT_EQ(refusal(*d, client), -536870198);
  onOpen_ = [] { return nullptr; };
  EXPECT_EQ(refusal(*d, client), -536870208);
  onOpen_ = [this] { return std::make_unique<FedDevice>(&feed_, bytes("c0"), false); };
  const auto error = d->admit(client.subscription);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), -536870198);
  EXPECT_THAT(error->description(),
              HasSubstr("offset 0: a collection is closed that was not opened"));
  onOpen_ = nullptr;
  enter(*d, client);
  feed_.report("07 01");
  client.sink->linesOnceThereAre(1);
  d->remove(client.subscription);
}

TEST_F(RoutedDeviceTest, AReaderThatIsTooSlowLosesReportsThatAreCounted) {
  const auto d = device();
  Client slow;
  Client quick;
  enter(*d, slow);
  enter(*d, quick);
  feed_.report("07 01");
  slow.sink->linesOnceThereAre(1);
  quick.sink->linesOnceThereAre(1);
  slow.sink->setUnsent(kLossLimit + 1);
  feed_.report("07 02");
  feed_.report("07 03");
  quick.sink->linesOnceThereAre(3);
  // The fast client is served after the slow one, so both losses have been counted by now.
  EXPECT_EQ(slow.subscription->lost(), 2U);
  slow.sink->setUnsent(kLossLimit);
  feed_.report("07 00");
  EXPECT_THAT(slow.sink->linesOnceThereAre(2),
              ElementsAre("report 7 07 01: 9/1=1 9/2=0", "report 7 07 00: 9/1=0 9/2=0"));
  quick.sink->linesOnceThereAre(4);
  EXPECT_EQ(quick.subscription->lost(), 0U);
  EXPECT_EQ(quick.subscription->delivered(), 4U);
  EXPECT_EQ(slow.subscription->delivered(), 2U);
  d->remove(slow.subscription);
  d->remove(quick.subscription);
}

TEST_F(RoutedDeviceTest, WhatTheRouterIsTooSlowForIsLostToEachReaderOfThatTime) {
  const auto d = device();
  Client first;
  Client second;
  enter(*d, first);
  feed_.report("07 01", 3);
  first.sink->linesOnceThereAre(1);
  EXPECT_EQ(first.subscription->lost(), 3U);
  enter(*d, second);
  feed_.report("07 02");
  second.sink->linesOnceThereAre(1);
  EXPECT_EQ(first.subscription->lost(), 3U);
  EXPECT_EQ(second.subscription->lost(), 0U);
  feed_.goAway(2);
  second.sink->awaitFarewell();
  EXPECT_EQ(first.subscription->lost(), 5U);
  EXPECT_EQ(second.subscription->lost(), 2U);
  EXPECT_EQ(first.subscription->delivered(), 2U);
  d->remove(first.subscription);
  d->remove(second.subscription);
}

TEST_F(RoutedDeviceTest, ADeviceThatWaitsForItsReadersLosesNothing) {
  waits_ = true;
  const auto d = device();
  Client client;
  client.sink->setUnsent(kLossLimit + 1);
  enter(*d, client);
  feed_.report("07 01");
  feed_.report("07 02");
  client.sink->awaitWaits(2);  // it has checked twice and is still waiting
  EXPECT_THAT(client.sink->lines(), IsEmpty());
  client.sink->setUnsent(0);
  EXPECT_EQ(client.sink->linesOnceThereAre(2).size(), 2U);
  EXPECT_EQ(client.subscription->lost(), 0U);
  d->remove(client.subscription);
}

TEST_F(RoutedDeviceTest, AClientThatLeavesIsNotWaitedFor) {
  waits_ = true;
  const auto d = device();
  Client stuck;
  Client other;
  stuck.sink->setUnsent(kLossLimit + 1);
  enter(*d, stuck);
  enter(*d, other);
  feed_.report("07 01");
  stuck.sink->awaitWaits(1);
  EXPECT_THAT(other.sink->lines(), IsEmpty());
  d->remove(stuck.subscription);
  other.sink->linesOnceThereAre(1);
  EXPECT_THAT(stuck.sink->lines(), IsEmpty());
  d->remove(other.subscription);
}

TEST_F(RoutedDeviceTest, ItMayBeDestroyedWhileItIsRead) {
  Client client;
  {
    const auto d = device();
    enter(*d, client);
    feed_.report("07 01");
    client.sink->linesOnceThereAre(1);
  }
  EXPECT_EQ(client.sink->farewells(), 0);
}

}  // namespace
