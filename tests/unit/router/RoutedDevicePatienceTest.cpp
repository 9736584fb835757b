// SPDX-License-Identifier: Apache-2.0

// How long a device waits for its clients, and what it leaves behind.
#include "RoutedDeviceFixture.h"

namespace {

using namespace routeddevicetest;  // NOLINT: the fixture of this program only
using testing::ElementsAre;
using testing::IsEmpty;

/// A client that holds up others has no time at all.
std::shared_ptr<Backlog> impatientBacklog() {
  RouterLimits limits;
  limits.stallTimeout = std::chrono::seconds(0);
  return std::make_shared<Backlog>(limits);
}

Client impatientClient() {
  return Client(DeviceMode::Shared, {}, impatientBacklog());
}

using RoutedDevicePatience = RoutedDeviceTest;

TEST_F(RoutedDevicePatience, WhoHoldsUpOthersForTooLongIsEnded) {
  waits_ = true;
  const auto d = device();
  Client stuck = impatientClient();
  Client other = impatientClient();
  stuck.sink->setUnsent(kLossLimit + 1);
  enter(*d, stuck);
  enter(*d, other);
  feed_.report("07 01");
  feed_.report("07 02");
  EXPECT_EQ(other.sink->linesOnceThereAre(2).size(), 2U);
  EXPECT_GE(stuck.sink->farewells(), 1);
  EXPECT_FALSE(stuck.subscription->isActive());
  EXPECT_THAT(stuck.sink->lines(), IsEmpty()) << "nothing follows a farewell";
  EXPECT_EQ(other.sink->farewells(), 0);
  d->remove(stuck.subscription);
  d->remove(other.subscription);
}

TEST_F(RoutedDevicePatience, WhoIsAloneHoldsUpNobody) {
  waits_ = true;
  const auto d = device();
  Client stuck = impatientClient();
  stuck.sink->setUnsent(kLossLimit + 1);
  enter(*d, stuck);
  feed_.report("07 01");
  stuck.sink->awaitWaits(4);
  EXPECT_EQ(stuck.sink->farewells(), 0);
  stuck.sink->setUnsent(0);
  stuck.sink->linesOnceThereAre(1);
  d->remove(stuck.subscription);
}

TEST_F(RoutedDevicePatience, WithinItsTimeNobodyIsEnded) {
  waits_ = true;
  const auto d = device();
  Client slow;
  Client other;
  slow.sink->setUnsent(kLossLimit + 1);
  enter(*d, slow);
  enter(*d, other);
  feed_.report("07 01");
  slow.sink->awaitWaits(3);
  EXPECT_EQ(slow.sink->farewells(), 0);
  slow.sink->setUnsent(0);
  slow.sink->linesOnceThereAre(1);
  other.sink->linesOnceThereAre(1);
  d->remove(slow.subscription);
  d->remove(other.subscription);
}

TEST_F(RoutedDevicePatience, RoomIsWhatADeviceWaitsForAndNoMore) {
  waits_ = true;
  const std::size_t room = RouterLimits().backlogWaitedFor;
  const auto d = device();
  Client client;
  client.sink->setUnsent(room - 1);
  enter(*d, client);
  feed_.report("07 01");
  client.sink->linesOnceThereAre(1);
  client.sink->setUnsent(room);
  feed_.report("07 02");
  client.sink->awaitWaits(3);
  EXPECT_EQ(client.sink->lines().size(), 1U);
  client.sink->setUnsent(room - 1);
  client.sink->linesOnceThereAre(2);
  d->remove(client.subscription);
}

TEST_F(RoutedDevicePatience, TheEndOfARecordingIsWaitedForWhereOneIsAlone) {
  waits_ = true;
  const auto d = device();
  Client alone = impatientClient();
  enter(*d, alone);
  alone.sink->setUnsent(1);
  feed_.end();
  alone.sink->awaitWaits(4);
  EXPECT_EQ(alone.sink->farewells(), 0);
  alone.sink->setUnsent(0);
  alone.sink->awaitFarewell();
  EXPECT_EQ(alone.sink->endings(), 1);
}

TEST_F(RoutedDevicePatience, TheEndIsNotWaitedForLongWhereOthersWaitToo) {
  waits_ = true;
  const auto d = device();
  Client slow = impatientClient();
  Client other = impatientClient();
  enter(*d, slow);
  enter(*d, other);
  slow.sink->setUnsent(1);
  feed_.end();
  slow.sink->awaitFarewell();
  other.sink->awaitFarewell();
  EXPECT_EQ(other.sink->endings(), 1);
}

TEST_F(RoutedDevicePatience, NobodyWaitsAtTheEndForWhoIsSlower) {
  for (const bool goesAway : {false, true}) {
    const auto d = device();
    Client stuck;
    Client other;
    Client slow;
    enter(*d, stuck);
    enter(*d, other);
    enter(*d, slow);
    stuck.sink->setUnsent(1);
    slow.sink->setUnsent(1);
    goesAway ? feed_.goAway() : feed_.end();
    other.sink->awaitFarewell();
    EXPECT_EQ(slow.sink->farewells(), 0);
    slow.sink->setUnsent(0);
    slow.sink->awaitFarewell();
    EXPECT_EQ(stuck.sink->farewells(), 0);
    stuck.sink->setUnsent(0);
    stuck.sink->awaitFarewell();
    for (const auto* each : {&stuck, &other, &slow}) {
      d->remove(each->subscription);
      EXPECT_EQ(each->sink->farewells(), 1);
    }
  }
}

TEST_F(RoutedDevicePatience, ADeviceThatGoesAtItsOwnPaceWaitsForNobodyForLong) {
  for (const bool goesAway : {false, true}) {
    const auto d = device();
    Client slow = impatientClient();
    enter(*d, slow);
    slow.sink->setUnsent(1);
    goesAway ? feed_.goAway() : feed_.end();
    slow.sink->awaitFarewell();
    d->remove(slow.subscription);
  }
}

TEST_F(RoutedDevicePatience, WhoHasNoPlaceDoesNotBegin) {
  const auto d = device();
  Client stranger;
  d->begin(stranger.subscription);
  EXPECT_FALSE(stranger.subscription->isActive());
  EXPECT_EQ(opened_, 0);
}

/// Counts its living instances.
class CountedDevice final : public OpenDevice {
 public:
  explicit CountedDevice(std::atomic<int>* count, std::unique_ptr<OpenDevice> device)
      : count_(count), device_(std::move(device)) {
    ++*count_;
  }
  CountedDevice(const CountedDevice&) = delete;
  CountedDevice& operator=(const CountedDevice&) = delete;
  ~CountedDevice() override { --*count_; }
  [[nodiscard]] const std::vector<std::uint8_t>& reportDescriptor() const override {
    return device_->reportDescriptor();
  }
  [[nodiscard]] bool waitsForReaders() const override { return device_->waitsForReaders(); }
  Next next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) override {
    return device_->next(stop, returnReport);
  }

 private:
  std::atomic<int>* const count_;
  const std::unique_ptr<OpenDevice> device_;
};

TEST_F(RoutedDevicePatience, WhatHasEndedIsClosedWhenSomebodyLeaves) {
  std::atomic<int> open{0};
  const auto d = device();
  onOpen_ = [&] {
    return std::make_unique<CountedDevice>(
        &open, std::make_unique<FedDevice>(&feed_, bytes(kDescriptor), false));
  };
  Client slow;
  enter(*d, slow);
  slow.sink->setUnsent(1);
  feed_.end();
  slow.sink->awaitWaits(2);
  Client other;
  enter(*d, other);
  d->remove(other.subscription);
  EXPECT_EQ(open, 1) << "a client is still reading the rest";
  slow.sink->setUnsent(0);
  slow.sink->awaitFarewell();
  // Its thread is about to return.
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (open > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
    d->remove(slow.subscription);
  }
  EXPECT_EQ(open, 0);
}

}  // namespace
