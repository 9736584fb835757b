// SPDX-License-Identifier: Apache-2.0

// A router whose only device's input comes from the test, and whose sessions wait where the test
// wants: to see what a client still receives after its permission was lost.
//
// Threading: the test's thread. Whoever waits at a gate is let through by the test, or fails it.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "RouterFixture.h"
#include "router/RoutedDevices.h"
#include "tests/unit/router/RoutedDeviceFixture.h"

namespace lostpermission {

inline constexpr std::uint64_t kDevice = 0x10007;
inline const std::vector<std::uint8_t> kDescriptor{0x05, 0x01, 0x09, 0x30, 0x75,
                                                   0x08, 0x95, 0x01, 0x81, 0x02};

/// Something that the test lets others pass.
class Gate {
 public:
  void close() {
    const std::lock_guard lock(mutex_);
    isOpen_ = false;
  }
  void open() {
    const std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }
  void pass() {
    std::unique_lock lock(mutex_);
    ++arrived_;
    changed_.notify_all();
    EXPECT_TRUE(changed_.wait_for(lock, routertest::kPatience, [&] { return isOpen_; }));
  }
  void awaitArrivals(int count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, routertest::kPatience, [&] { return arrived_ >= count; }));
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOpen_ = true;
  int arrived_ = 0;
};

struct Device {
  routeddevicetest::Feed feed;
  Gate reads;  ///< whoever comes here again is done with the report before
  std::function<void()> onOpen = [] {};
};

class CountedDevice final : public router::OpenDevice {
 public:
  explicit CountedDevice(Device* device) : device_(device) {}
  [[nodiscard]] const std::vector<std::uint8_t>& reportDescriptor() const override {
    return kDescriptor;
  }
  [[nodiscard]] bool waitsForReaders() const override { return false; }
  Next next(const router::StopSignal& stop, std::span<const std::uint8_t>* report) override {
    device_->reads.pass();
    return fed_.next(stop, report);
  }

 private:
  Device* const device_;
  routeddevicetest::FedDevice fed_{&device_->feed, kDescriptor, false};
};

class OneDevice final : public router::DeviceSource {
 public:
  explicit OneDevice(Device* device) : device_(device) {}
  std::vector<router::DeviceDescription> list(std::vector<std::string>*) const override {
    return {{kDevice, "Pen", 3, 1, 2, "test"}};
  }
  [[nodiscard]] std::unique_ptr<router::OpenDevice> open(std::uint64_t) const override {
    device_->onOpen();
    return std::make_unique<CountedDevice>(device_);
  }

 private:
  Device* const device_;
};

/// Says yes, and no longer so when the test wants.
class YesUntilRevoked final : public router::RoutingAuthority {
 public:
  std::shared_ptr<router::RoutingCaller> callerOf(const platform::NSXPCConnection&) override {
    return std::make_shared<Caller>(this);
  }
  std::optional<router::Classification> classOf(const router::DeviceDescription&) const override {
    return std::nullopt;
  }
  void review() override { reviews.pass(); }
  void revoke() { revoked_("it is no longer allowed"); }

  Gate reviews;

 private:
  class Caller final : public router::RoutingCaller {
   public:
    explicit Caller(YesUntilRevoked* authority) : authority_(authority) {}
    std::unique_ptr<router::RoutingPermit> ask(const router::RoutingRequest&, Decided decided,
                                               Revoked revoked) override {
      authority_->revoked_ = std::move(revoked);
      decided({true, {}, router::allReports()});
      return std::make_unique<router::RoutingPermit>();
    }
    std::unique_ptr<router::RoutingPermit> askToEnd(std::uint64_t, Decided) override {
      return nullptr;
    }
    [[nodiscard]] std::string program() const override { return {}; }
    [[nodiscard]] std::string unit() const override { return {}; }

   private:
    YesUntilRevoked* const authority_;
  };

  router::RoutingCaller::Revoked revoked_;
};

class LostPermissionFixture : public routertest::RouterFixture {
 protected:
  /// A session that writes a line with `part` waits until the gate is opened.
  void startRouterThatStopsAt(const std::string& part) {
    router::DeviceSources sources;
    sources.push_back(std::make_unique<OneDevice>(&device_));
    router::RouterOptions options;
    options.sources = std::make_shared<const router::DeviceSources>(std::move(sources));
    options.authority = authority_;
    options.log = [this, part](std::string_view line) {
      routerLog_->add(std::string(line));
      if (line.find(part) != std::string_view::npos) session_.pass();
    };
    session_.close();
    router_ = std::make_unique<router::Router>(
        root(), platform::NSXPCListener::initWithListeningDescriptor(listen()), options);
    router_->resume();
  }
  void TearDown() override {
    session_.open();
    routertest::RouterFixture::TearDown();
  }

  Device device_;
  Gate session_;
};

}  // namespace lostpermission
