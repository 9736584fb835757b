// SPDX-License-Identifier: Apache-2.0

// Clients that wait for a place at a device that others use, and which of them gets it.
//
//   the owner leaves          the first that fits gets the place, is woken and admitted
//   two wait for one place    the one that came first gets it; the other keeps waiting
//   one gives up              it gets nothing, and is not woken
//   nothing happens in time   it asks to be admitted anyway, is refused, and no longer waits
//   the recording ends        as if all clients had left
//   the device goes away      all that wait are woken, and refused
#include "RoutedDeviceFixture.h"

namespace {

using namespace routeddevicetest;  // NOLINT: the fixture of this program only
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kInUse = -536870203;

class RoutedDevicePlaces : public RoutedDeviceTest {
 protected:
  const std::unique_ptr<RoutedDevice> d_ = device();
  Client owner_{DeviceMode::Exclusive};
};

TEST_F(RoutedDevicePlaces, NobodyWaitsWhereThereIsRoom) {
  Client a;
  Client b;
  EXPECT_FALSE(waits(*d_, a, "a"));
  EXPECT_EQ(opened_, 0);
  EXPECT_FALSE(waits(*d_, b, "b"));
  EXPECT_EQ(refusal(*d_, owner_), kInUse) << "both have a place";
  enter(*d_, a);
  enter(*d_, b);
  feed_.report("07 01");
  EXPECT_EQ(a.sink->linesOnceThereAre(1).size(), 1U);
  EXPECT_EQ(b.sink->linesOnceThereAre(1).size(), 1U) << "each has one place";
  d_->remove(a.subscription);
  d_->remove(b.subscription);
  enter(*d_, owner_);
  EXPECT_THAT(woken_, IsEmpty());
  d_->remove(owner_.subscription);
}

TEST_F(RoutedDevicePlaces, WhoWaitsHasThePlaceOfWhoeverLeaves) {
  enter(*d_, owner_);
  Client waiting(DeviceMode::Exclusive);
  EXPECT_TRUE(waits(*d_, waiting, "waiting"));
  EXPECT_THAT(woken_, IsEmpty());
  d_->remove(owner_.subscription);
  EXPECT_THAT(woken_, ElementsAre("waiting"));
  Client late;
  EXPECT_EQ(refusal(*d_, late), kInUse) << "the place is taken, though not yet used";
  enter(*d_, waiting);
  feed_.report("07 01");
  waiting.sink->linesOnceThereAre(1);
  EXPECT_EQ(opened_, 2);
  d_->remove(waiting.subscription);
  EXPECT_THAT(woken_, ElementsAre("waiting"));
}

TEST_F(RoutedDevicePlaces, OfTwoThatWaitTheFirstHasThePlaceAndTheOtherTheNext) {
  enter(*d_, owner_);
  Client first(DeviceMode::Exclusive);
  Client second(DeviceMode::Exclusive);
  EXPECT_TRUE(waits(*d_, first, "first"));
  EXPECT_TRUE(waits(*d_, second, "second"));
  d_->remove(owner_.subscription);
  EXPECT_THAT(woken_, ElementsAre("first"));
  enter(*d_, first);
  d_->remove(first.subscription);
  EXPECT_THAT(woken_, ElementsAre("first", "second"));
  enter(*d_, second);
  d_->remove(second.subscription);
}

TEST_F(RoutedDevicePlaces, AllThatFitHaveOneInTheirOrder) {
  enter(*d_, owner_);
  Client a;
  Client alone(DeviceMode::Exclusive);
  Client b;
  EXPECT_TRUE(waits(*d_, a, "a"));
  EXPECT_TRUE(waits(*d_, alone, "alone"));
  EXPECT_TRUE(waits(*d_, b, "b"));
  d_->remove(owner_.subscription);
  EXPECT_THAT(woken_, ElementsAre("a", "b"));
  enter(*d_, a);
  enter(*d_, b);
  d_->remove(a.subscription);
  EXPECT_THAT(woken_, ElementsAre("a", "b"));
  d_->remove(b.subscription);
  EXPECT_THAT(woken_, ElementsAre("a", "b", "alone"));
  d_->remove(alone.subscription);
}

TEST_F(RoutedDevicePlaces, WhoGivesUpGetsNothing) {
  enter(*d_, owner_);
  Client hasty(DeviceMode::Exclusive);
  Client patient(DeviceMode::Exclusive);
  EXPECT_TRUE(waits(*d_, hasty, "hasty"));
  EXPECT_TRUE(waits(*d_, patient, "patient"));
  d_->remove(hasty.subscription);
  d_->remove(owner_.subscription);
  EXPECT_THAT(woken_, ElementsAre("patient"));
  enter(*d_, patient);
  d_->remove(patient.subscription);
}

TEST_F(RoutedDevicePlaces, WhoGivesUpWhatItHasBeenGivenMakesRoom) {
  enter(*d_, owner_);
  Client hasty(DeviceMode::Exclusive);
  Client patient;
  EXPECT_TRUE(waits(*d_, hasty, "hasty"));
  EXPECT_TRUE(waits(*d_, patient, "patient"));
  d_->remove(owner_.subscription);
  d_->remove(hasty.subscription);
  EXPECT_THAT(woken_, ElementsAre("hasty", "patient"));
  enter(*d_, patient);
  EXPECT_EQ(opened_, 2) << "not for the one that gave up";
  d_->remove(patient.subscription);
}

TEST_F(RoutedDevicePlaces, WhoWaitsForTooLongIsRefusedAndWaitsNoMore) {
  enter(*d_, owner_);
  Client waiting(DeviceMode::Exclusive);
  EXPECT_TRUE(waits(*d_, waiting, "waiting"));
  EXPECT_EQ(refusal(*d_, waiting), kInUse);
  d_->remove(owner_.subscription);
  EXPECT_THAT(woken_, IsEmpty());
  Client next(DeviceMode::Exclusive);
  enter(*d_, next);
  d_->remove(next.subscription);
}

TEST_F(RoutedDevicePlaces, WhoWaitsHasAPlaceWhenARecordingEnds) {
  enter(*d_, owner_);
  Client waiting;
  EXPECT_TRUE(waits(*d_, waiting, "waiting"));
  // All must wait until the owner has read the rest.
  owner_.sink->setUnsent(1);
  feed_.end();
  EXPECT_THAT(wokenOnceThereAre(1), ElementsAre("waiting"));
  enter(*d_, waiting);
  feed_.report("07 01");
  waiting.sink->linesOnceThereAre(1);
  EXPECT_EQ(opened_, 2);
  EXPECT_EQ(owner_.sink->farewells(), 0);
  owner_.sink->setUnsent(0);
  owner_.sink->awaitFarewell();
  d_->remove(waiting.subscription);
}

TEST_F(RoutedDevicePlaces, WhoWaitsIsToldAtOnceThatTheDeviceHasGone) {
  enter(*d_, owner_);
  Client waiting;
  Client other(DeviceMode::Exclusive);
  EXPECT_TRUE(waits(*d_, waiting, "waiting"));
  EXPECT_TRUE(waits(*d_, other, "other"));
  owner_.sink->setUnsent(1);
  feed_.goAway();
  EXPECT_THAT(wokenOnceThereAre(2), ElementsAre("waiting", "other"));
  const auto error = d_->admit(waiting.subscription);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), -536870208);
  EXPECT_EQ(error->userInfo()->objectForKey(platform::NSLocalizedDescriptionKey)->description(),
            "the device \"Mouse\" has gone away");
  EXPECT_EQ(refusal(*d_, other), -536870208);
  EXPECT_FALSE(waits(*d_, other, "again")) << "there will never be a place";
  owner_.sink->setUnsent(0);
  d_->remove(owner_.subscription);
  EXPECT_EQ(waiting.sink->farewells(), 0) << "its connection stays open";
}

TEST_F(RoutedDevicePlaces, AWakeMayAskAtOnce) {
  enter(*d_, owner_);
  Client waiting(DeviceMode::Exclusive);
  EXPECT_TRUE(d_->waitsForPlace(waiting.subscription, [&] { enter(*d_, waiting); }));
  d_->remove(owner_.subscription);
  feed_.report("07 01");
  waiting.sink->linesOnceThereAre(1);
  d_->remove(waiting.subscription);
}

}  // namespace
