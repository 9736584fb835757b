// SPDX-License-Identifier: Apache-2.0

// When devices are looked at anew, and when not.
#include "router/policy/RecentDevices.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using router::DeviceDescription;
using router::DeviceFacts;
using router::DeviceSource;
using router::DeviceSources;
using router::DeviceWatch;
using router::RecentDevices;
using std::chrono::milliseconds;

/// A computer with one device at most.
struct Computer {
  bool hasDevice = true;
  bool hasChanged = false;
  bool isWatched = true;
  int looks = 0;
};

class Watch final : public DeviceWatch {
 public:
  explicit Watch(Computer& computer) : computer_(computer) {}
  [[nodiscard]] int descriptor() const override { return -1; }
  bool take() override { return std::exchange(computer_.hasChanged, false); }

 private:
  Computer& computer_;
};

/// Of which nothing but facts is asked.
class FactsAlone : public DeviceSource {
 public:
  std::vector<DeviceDescription> list(std::vector<std::string>* /*problems*/) const override {
    return {};
  }
  [[nodiscard]] std::unique_ptr<router::OpenDevice> open(std::uint64_t /*id*/) const override {
    return nullptr;
  }
};

/// What it has looked at once it does not look at again.
class Remembering final : public FactsAlone {
 public:
  explicit Remembering(Computer& computer) : computer_(computer) {}
  [[nodiscard]] std::optional<DeviceFacts> factsOf(std::uint64_t /*id*/) const override {
    if (!facts_) {
      ++computer_.looks;
      facts_.emplace();
      if (computer_.hasDevice) facts_->emplace();
    }
    return *facts_;
  }

 private:
  Computer& computer_;
  mutable std::optional<std::optional<DeviceFacts>> facts_;
};

class Source final : public FactsAlone {
 public:
  explicit Source(Computer& computer) : computer_(computer) {}
  [[nodiscard]] std::optional<DeviceFacts> factsOf(std::uint64_t id) const override {
    return Remembering(computer_).factsOf(id);
  }
  [[nodiscard]] std::unique_ptr<DeviceWatch> watch() const override {
    return computer_.isWatched ? std::make_unique<Watch>(computer_) : nullptr;
  }
  [[nodiscard]] std::unique_ptr<DeviceSource> remembering() const override {
    return std::make_unique<Remembering>(computer_);
  }

 private:
  Computer& computer_;
};

class RecentDevicesTest : public testing::Test {
 protected:
  void begin() {
    DeviceSources sources;
    sources.push_back(std::make_unique<Source>(computer_));
    recent_ = std::make_unique<RecentDevices>(
        std::make_shared<const DeviceSources>(std::move(sources)), [this] { return now_; });
  }
  bool isThere() { return recent_->device({}).has_value(); }

  Computer computer_;
  RecentDevices::Clock::time_point now_;
  std::unique_ptr<RecentDevices> recent_;
};

TEST_F(RecentDevicesTest, WhatHasNotChangedIsLookedAtOnce) {
  begin();
  EXPECT_TRUE(isThere());
  EXPECT_TRUE(isThere());
  EXPECT_EQ(computer_.looks, 1);
}

TEST_F(RecentDevicesTest, AChangeCountsFromTheNextCallOn) {
  begin();
  EXPECT_TRUE(isThere());
  computer_.hasDevice = false;
  computer_.hasChanged = true;
  EXPECT_FALSE(isThere());
  EXPECT_FALSE(isThere());
  EXPECT_EQ(computer_.looks, 2);
}

TEST_F(RecentDevicesTest, AfterTenSecondsItLooksAgain) {
  begin();
  EXPECT_TRUE(isThere());
  computer_.hasDevice = false;
  now_ += milliseconds(10'000);
  EXPECT_TRUE(isThere());
  now_ += milliseconds(1);
  EXPECT_FALSE(isThere());
}

TEST_F(RecentDevicesTest, WithoutAWatchItLooksEachTime) {
  computer_.isWatched = false;
  begin();
  EXPECT_TRUE(isThere());
  computer_.hasDevice = false;
  EXPECT_FALSE(isThere());
  EXPECT_EQ(computer_.looks, 2);
}

}  // namespace
