// SPDX-License-Identifier: Apache-2.0

// The devices of a source whose list the test writes.
#include "router/RoutedDevices.h"

#include "RoutedDeviceFixture.h"

namespace {

using namespace routeddevicetest;  // NOLINT: the fixture's
using router::RoutedDevices;

constexpr std::uint64_t kDevice = 0x10007;

struct Plugged {
  std::atomic<bool> isListed{true};
  std::atomic<int> listings{0};
  std::string name = "Pen";
  Feed feed;
};

class PluggedSource final : public router::DeviceSource {
 public:
  explicit PluggedSource(Plugged* plugged) : plugged_(plugged) {}
  std::vector<DeviceDescription> list(std::vector<std::string>*) const override {
    ++plugged_->listings;
    if (!plugged_->isListed) return {};
    return {{kDevice, plugged_->name, 3, 1, 2, "test"}};
  }
  [[nodiscard]] std::unique_ptr<OpenDevice> open(std::uint64_t id) const override {
    if (id != kDevice || !plugged_->isListed) return nullptr;
    return std::make_unique<FedDevice>(&plugged_->feed, bytes("05 01 09 30 75 08 95 01 81 02"),
                                       false);
  }

 private:
  Plugged* const plugged_;
};

class RoutedDevicesTest : public testing::Test {
 protected:
  static std::shared_ptr<const router::DeviceSources> sources(Plugged* plugged) {
    router::DeviceSources sources;
    sources.push_back(std::make_unique<PluggedSource>(plugged));
    return std::make_shared<const router::DeviceSources>(std::move(sources));
  }
  static void enter(RoutedDevice& device, const Client& client) {
    ASSERT_EQ(device.admit(client.subscription), nullptr);
    device.begin(client.subscription);
  }
  void goAway() {
    plugged_.isListed = false;
    plugged_.feed.goAway();
  }

  Plugged plugged_;
  RoutedDevices devices_{sources(&plugged_), 10, [](std::string_view) {}};
};

TEST_F(RoutedDevicesTest, ADeviceIsLookedForOnceWhileItIsThere) {
  EXPECT_EQ(devices_.withID(0x42), nullptr);
  const auto device = devices_.withID(kDevice);
  ASSERT_NE(device, nullptr);
  const int listings = plugged_.listings;
  EXPECT_EQ(devices_.withID(kDevice), device);
  EXPECT_EQ(plugged_.listings, listings);
}

TEST_F(RoutedDevicesTest, OneThatHasGoneStaysAwayUntilItIsListedAgain) {
  const auto device = devices_.withID(kDevice);
  Client client;
  enter(*device, client);
  goAway();
  client.sink->awaitFarewell();
  device->remove(client.subscription);
  const auto gone = devices_.withID(kDevice);
  Client late;
  ASSERT_NE(gone, nullptr);
  const auto error = gone->admit(late.subscription);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(IOReturn::NoDevice));
}

/// A driver that is taken from a device and given back to it leaves the kernel's device the same.
TEST_F(RoutedDevicesTest, OneThatHasGoneAndIsListedAgainIsRoutedAgain) {
  const auto before = devices_.withID(kDevice);
  Client client;
  enter(*before, client);
  goAway();
  client.sink->awaitFarewell();
  plugged_.isListed = true;
  plugged_.name = "Pen with its other driver";
  const auto again = devices_.withID(kDevice);
  ASSERT_NE(again, nullptr);
  EXPECT_NE(again, before);
  EXPECT_EQ(again->description().name, "Pen with its other driver");
  EXPECT_EQ(devices_.withID(kDevice), again);
  Client next;
  enter(*again, next);
  plugged_.feed.report("07");
  EXPECT_THAT(next.sink->linesOnceThereAre(1), testing::ElementsAre("report 0 07: 1/48=7"));
  // Whoever had it before does not get it back unasked.
  before->remove(client.subscription);
  EXPECT_THAT(client.sink->lines(), testing::ElementsAre());
  again->remove(next.subscription);
}

}  // namespace
