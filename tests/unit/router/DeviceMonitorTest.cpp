// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DeviceMonitor.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <atomic>
#include <condition_variable>
#include <stdexcept>

#include "platform/services/FileDescriptor.h"

namespace {

using router::DeviceMonitor;
using router::ListedDevice;

constexpr std::chrono::seconds kPatience{30};

/// Devices that the test changes, and a watch that it triggers.
struct Computer {
  class Watch final : public router::DeviceWatch {
   public:
    explicit Watch(int descriptor) : descriptor_(descriptor) {}
    [[nodiscard]] int descriptor() const override { return descriptor_; }
    bool take() override {
      eventfd_t count = 0;
      return ::eventfd_read(descriptor_, &count) == 0;
    }

   private:
    const int descriptor_;
  };

  void setDevices(const std::vector<std::uint64_t>& ids) {
    const std::lock_guard lock(mutex);
    devices.clear();
    for (const std::uint64_t id : ids) devices.emplace_back().device.registryEntryID = id;
  }
  void notice() const { ::eventfd_write(event.get(), 1); }
  DeviceMonitor::Sources sources() {
    return {[this] {
              const std::lock_guard lock(mutex);
              ++listings;
              if (isBroken) throw std::runtime_error("cannot be listed");
              return devices;
            },
            [this] {
              std::vector<std::unique_ptr<router::DeviceWatch>> watches;
              watches.push_back(hasWatch ? std::make_unique<Watch>(event.get()) : nullptr);
              return watches;
            }};
  }

  const platform::FileDescriptor event{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::mutex mutex;
  std::vector<ListedDevice> devices;
  std::atomic<int> listings{0};
  std::atomic<bool> isBroken{false};
  bool hasWatch = true;
};

/// Counts how often it is told.
class Listener {
 public:
  std::function<void()> function() {
    return [this] {
      const std::lock_guard lock(mutex_);
      ++count_;
      changed_.notify_all();
    };
  }
  [[nodiscard]] bool isTold(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return count_ >= count; });
  }
  [[nodiscard]] int count() {
    const std::lock_guard lock(mutex_);
    return count_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

class DeviceMonitorTest : public testing::Test {
 protected:
  void TearDown() override {
    if (monitor_ != nullptr) monitor_->stop();
  }
  DeviceMonitor& monitor() {
    if (monitor_ == nullptr)
      monitor_ = std::make_shared<DeviceMonitor>(computer_.sources(), limits_);
    return *monitor_;
  }
  std::vector<std::uint64_t> ids() {
    std::vector<std::uint64_t> ids;
    for (const ListedDevice& each : *monitor().devices())
      ids.push_back(each.device.registryEntryID);
    return ids;
  }

  using IDs = std::vector<std::uint64_t>;
  Computer computer_;
  Listener listener_;
  router::RouterLimits limits_;
  std::shared_ptr<DeviceMonitor> monitor_;
};

TEST_F(DeviceMonitorTest, NothingIsListedBeforeSomebodyWantsToKnow) {
  computer_.setDevices({1});
  monitor();
  EXPECT_EQ(computer_.listings, 0);
  const auto subscription = monitor().subscribe(listener_.function());
  EXPECT_EQ(ids(), (IDs{1}));
  EXPECT_EQ(listener_.count(), 0) << "what is there is no change";
}

TEST_F(DeviceMonitorTest, EachSubscriberIsToldOfAChange) {
  Listener other;
  const auto one = monitor().subscribe(listener_.function());
  const auto two = monitor().subscribe(other.function());
  computer_.setDevices({1, 2});
  computer_.notice();
  EXPECT_TRUE(listener_.isTold(1));
  EXPECT_TRUE(other.isTold(1));
  EXPECT_EQ(ids(), (IDs{1, 2}));
}

TEST_F(DeviceMonitorTest, WhoeverHasLeftIsNotTold) {
  Listener other;
  auto left = monitor().subscribe(other.function());
  const auto stays = monitor().subscribe(listener_.function());
  left = nullptr;
  computer_.setDevices({1});
  computer_.notice();
  EXPECT_TRUE(listener_.isTold(1));
  EXPECT_EQ(other.count(), 0);
}

TEST_F(DeviceMonitorTest, WhatChangedNothingIsNotTold) {
  const auto subscription = monitor().subscribe(listener_.function());
  computer_.notice();
  while (computer_.listings < 2) std::this_thread::yield();
  computer_.setDevices({1});
  computer_.notice();
  EXPECT_TRUE(listener_.isTold(1));
  monitor().stop();
  EXPECT_EQ(listener_.count(), 1);
}

TEST_F(DeviceMonitorTest, WithoutAListTheLastOneStays) {
  computer_.setDevices({1});
  const auto subscription = monitor().subscribe(listener_.function());
  computer_.isBroken = true;
  computer_.notice();
  while (computer_.listings < 2) std::this_thread::yield();
  EXPECT_EQ(ids(), (IDs{1}));
  computer_.isBroken = false;
  computer_.setDevices({2});
  computer_.notice();
  EXPECT_TRUE(listener_.isTold(1));
  EXPECT_EQ(ids(), (IDs{2}));
}

TEST_F(DeviceMonitorTest, WhereChangesCannotBeWatchedTheDevicesAreListedFromTimeToTime) {
  computer_.hasWatch = false;
  limits_.directoryPoll = std::chrono::milliseconds(1);
  const auto subscription = monitor().subscribe(listener_.function());
  computer_.setDevices({1});
  EXPECT_TRUE(listener_.isTold(1));
  EXPECT_EQ(ids(), (IDs{1}));
}

TEST_F(DeviceMonitorTest, WhatWasNotReadyAtAChangeIsFoundSoonAfterwards) {
  limits_.directorySettling = std::chrono::milliseconds(200);
  const auto subscription = monitor().subscribe(listener_.function());
  for (const IDs& ids : {IDs{1}, IDs{1, 2}}) {
    const int before = computer_.listings;
    computer_.notice();
    while (computer_.listings == before) std::this_thread::yield();
    computer_.setDevices(ids);  // without a notice
    EXPECT_TRUE(listener_.isTold(static_cast<int>(ids.size())));
  }
}

TEST_F(DeviceMonitorTest, CanBeStoppedBeforeItHasBegun) {
  monitor().stop();
  const auto subscription = monitor().subscribe(listener_.function());
  EXPECT_EQ(listener_.count(), 0);
}

}  // namespace
