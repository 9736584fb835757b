// SPDX-License-Identifier: Apache-2.0

// When a device is taken from everybody else on the computer, and when it is given back.
#include "RoutedDeviceFixture.h"

namespace {

using namespace routeddevicetest;  // NOLINT: the fixture of this program only

constexpr std::int64_t kInUse = -536870203;

class RoutedDeviceExclusive : public RoutedDeviceTest {
 protected:
  const std::unique_ptr<RoutedDevice> d_ = device();
  Client alone_{DeviceMode::Exclusive};
};

TEST_F(RoutedDeviceExclusive, IsTakenForAnExclusiveClientAsLongAsItStays) {
  EXPECT_EQ(d_->admit(alone_.subscription), nullptr);
  EXPECT_TRUE(taking_.isTaken);
  d_->begin(alone_.subscription);
  feed_.report("07 01");
  alone_.sink->linesOnceThereAre(1);
  EXPECT_TRUE(taking_.isTaken);
  d_->remove(alone_.subscription);
  EXPECT_FALSE(taking_.isTaken);
  EXPECT_EQ(taking_.times, 1);
}

TEST_F(RoutedDeviceExclusive, IsNotTakenForOthers) {
  Client shared;
  enter(*d_, shared);
  EXPECT_EQ(refusal(*d_, alone_), kInUse);
  EXPECT_EQ(taking_.times, 0);
  d_->remove(shared.subscription);
}

TEST_F(RoutedDeviceExclusive, WhatAnotherProgramHasTakenIsInUse) {
  taking_.refusal = std::make_error_code(std::errc::device_or_resource_busy);
  EXPECT_EQ(refusal(*d_, alone_), kInUse);
  taking_.refusal = std::make_error_code(std::errc::permission_denied);
  EXPECT_EQ(refusal(*d_, alone_), -536870174);
  taking_.refusal.reset();
  enter(*d_, alone_);
  feed_.report("07 01");
  alone_.sink->linesOnceThereAre(1);
  d_->remove(alone_.subscription);
}

TEST_F(RoutedDeviceExclusive, ADeviceThatCannotBeReadIsNotTakenEither) {
  onOpen_ = [this] { return std::make_unique<FedDevice>(&feed_, bytes("c0"), false, &taking_); };
  EXPECT_EQ(refusal(*d_, alone_), -536870198);
  EXPECT_EQ(taking_.times, 0);
}

TEST_F(RoutedDeviceExclusive, IsGivenBackBeforeTheNextClientIsOfferedThePlace) {
  enter(*d_, alone_);
  Client next(DeviceMode::Exclusive);
  std::vector<bool> wasTaken;
  EXPECT_TRUE(d_->waitsForPlace(next.subscription, [&] { wasTaken.push_back(taking_.isTaken); }));
  d_->remove(alone_.subscription);
  EXPECT_EQ(wasTaken, std::vector<bool>{false});
  enter(*d_, next);
  EXPECT_TRUE(taking_.isTaken);
  d_->remove(next.subscription);
  EXPECT_EQ(taking_.times, 2);
}

TEST_F(RoutedDeviceExclusive, IsGivenBackBeforeThePlaceIsFreeForAnyone) {
  enter(*d_, alone_);
  std::atomic<bool> isOver{false};
  std::thread other([&] {
    while (!isOver) {
      Client next(DeviceMode::Exclusive);  // taking it checks that it has been given back
      if (d_->admit(next.subscription) == nullptr) d_->remove(next.subscription);
    }
  });
  constexpr int kRounds = 200;
  for (int i = 0; i < kRounds; ++i) {
    Client next(DeviceMode::Exclusive);
    if (d_->admit(next.subscription) == nullptr) d_->begin(next.subscription);
    d_->remove(next.subscription);
    if (i == 0) d_->remove(alone_.subscription);
  }
  isOver = true;
  other.join();
  EXPECT_FALSE(taking_.isTaken);
}

TEST_F(RoutedDeviceExclusive, IsGivenBackWhenItFailsAlthoughTheClientStays) {
  enter(*d_, alone_);
  feed_.report("07 01");
  alone_.sink->linesOnceThereAre(1);
  alone_.sink->setUnsent(1);  // it takes its time
  feed_.fail();
  alone_.sink->awaitWaits(2);
  EXPECT_FALSE(taking_.isTaken);
  Client next(DeviceMode::Exclusive);
  enter(*d_, next);
  EXPECT_TRUE(taking_.isTaken);
  alone_.sink->setUnsent(0);
  alone_.sink->awaitFarewell();
  EXPECT_TRUE(taking_.isTaken) << "what is over gives back nothing that is another's";
  d_->remove(alone_.subscription);
  d_->remove(next.subscription);
}

TEST_F(RoutedDeviceExclusive, IsGivenBackWhenItGoesAway) {
  enter(*d_, alone_);
  feed_.goAway();
  alone_.sink->awaitFarewell();
  EXPECT_FALSE(taking_.isTaken);
  d_->remove(alone_.subscription);
}

TEST_F(RoutedDeviceExclusive, AClientThatLeavesWhileItIsOpenedLeavesNothingTaken) {
  onOpen_ = [this] {
    d_->remove(alone_.subscription);
    return std::make_unique<FedDevice>(&feed_, bytes(kDescriptor), false, &taking_);
  };
  static_cast<void>(d_->admit(alone_.subscription));
  EXPECT_EQ(taking_.times, 1);
  EXPECT_FALSE(taking_.isTaken);
  d_->begin(alone_.subscription);
  onOpen_ = nullptr;
  Client shared;
  enter(*d_, shared);
  EXPECT_EQ(opened_, 2) << "the first one has been closed";
  d_->remove(shared.subscription);
}

}  // namespace
