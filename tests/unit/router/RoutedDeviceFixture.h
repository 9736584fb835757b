// SPDX-License-Identifier: Apache-2.0

// A device whose input comes from the test, and clients of it that note what they get.
//
// Threading: the device's thread calls the sinks.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <thread>

#include "HexBytes.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "router/RoutedDevice.h"
#include "router/RouterErrors.h"

namespace routeddevicetest {

using platform::KQHIDDeviceElementValue;
using platform::NSArray;
using platform::NSData;
using platform::NSDictionary;
using platform::NSNumber;
using router::Backlog;
using router::DeviceDescription;
using router::DeviceError;
using router::DeviceMode;
using router::IOReturn;
using router::OpenDevice;
using router::ReportSink;
using router::RoutedDevice;
using router::RouterLimits;
using router::StopSignal;
using router::Subscription;
using router::UsageFilter;
using std::chrono::milliseconds;

inline constexpr std::chrono::seconds kPatience{30};
inline const std::size_t kLossLimit = RouterLimits().backlogPerClient;

/// The input of a device, as set by the test. Outlives the device.
class Feed {
 public:
  Feed() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)) {}
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;
  ~Feed() { ::close(descriptor_); }

  /// `lost` reports before it could not be kept.
  void report(const std::string& hex, std::uint64_t lost = 0) {
    push({OpenDevice::Next::Report, bytes(hex), lost});
  }
  void goAway(std::uint64_t lost = 0) { push({OpenDevice::Next::Gone, {}, lost}); }
  void end() { push({OpenDevice::Next::Ended, {}}); }
  void fail() { push({OpenDevice::Next::Stopped, {}}); }

  struct Step {
    OpenDevice::Next next;
    std::vector<std::uint8_t> report;
    std::uint64_t lost = 0;
  };
  /// Empty once the signal is raised.
  std::optional<Step> take(const StopSignal& stop) {
    std::array<pollfd, 2> polls{pollfd{stop.descriptor(), POLLIN, 0},
                                pollfd{descriptor_, POLLIN, 0}};
    ::poll(polls.data(), polls.size(), -1);
    if (stop.isRaised()) return std::nullopt;
    std::uint64_t one = 0;
    EXPECT_EQ(::read(descriptor_, &one, sizeof one), static_cast<ssize_t>(sizeof one));
    const std::lock_guard lock(mutex_);
    Step step = steps_.front();
    steps_.pop_front();
    return step;
  }

 private:
  void push(Step step) {
    {
      const std::lock_guard lock(mutex_);
      steps_.push_back(std::move(step));
    }
    const std::uint64_t one = 1;
    EXPECT_EQ(::write(descriptor_, &one, sizeof one), static_cast<ssize_t>(sizeof one));
  }

  const int descriptor_;
  std::mutex mutex_;
  std::deque<Step> steps_;
};

/// Whether a device has been taken from everybody else, and what befell it.
struct Taking {
  std::atomic<bool> isTaken{false};
  std::atomic<int> times{0};
  std::optional<std::error_code> refusal;  ///< instead of taking it
};

class FedDevice final : public OpenDevice {
 public:
  FedDevice(Feed* feed, std::vector<std::uint8_t> descriptor, bool waits, Taking* taking = nullptr)
      : feed_(feed), reportDescriptor_(std::move(descriptor)), waits_(waits), taking_(taking) {}
  ~FedDevice() override {
    if (taking_ != nullptr && hasTaken_) taking_->isTaken = false;
  }
  [[nodiscard]] const std::vector<std::uint8_t>& reportDescriptor() const override {
    return reportDescriptor_;
  }
  [[nodiscard]] bool waitsForReaders() const override { return waits_; }
  Next next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) override {
    auto step = feed_->take(stop);
    if (!step) return Next::Stopped;
    if (step->next == Next::Stopped) throw std::runtime_error("the cable is cut");
    lost_ += step->lost;
    report_ = std::move(step->report);
    *returnReport = report_;
    return step->next;
  }
  [[nodiscard]] std::uint64_t lost() const override { return lost_; }
  void takeExclusively() override {
    if (taking_ == nullptr) return;
    if (taking_->refusal) throw DeviceError("it is taken", *taking_->refusal);
    EXPECT_FALSE(taking_->isTaken.exchange(true)) << "it has not been given back";
    hasTaken_ = true;
    ++taking_->times;
  }
  void releaseExclusive() override {
    if (taking_ != nullptr && std::exchange(hasTaken_, false)) taking_->isTaken = false;
  }

 private:
  Feed* const feed_;
  const std::vector<std::uint8_t> reportDescriptor_;
  const bool waits_;
  Taking* const taking_;
  bool hasTaken_ = false;
  std::uint64_t lost_ = 0;
  std::vector<std::uint8_t> report_;
};

/// A client that notes what it gets, as "report 01: 9/1=1 9/2=0"; the test sets how much it reads.
class NotingSink final : public ReportSink {
 public:
  void send(const std::shared_ptr<NSData>& report, std::uint32_t reportID,
            const std::shared_ptr<NSArray>& values) override {
    std::string line = "report " + std::to_string(reportID);
    for (const std::uint8_t byte : report->span())
      line += platform::stringWithFormat(" %02x", byte);
    if (values != nullptr) {
      line += ":";
      values->enumerateObjects([&](const std::shared_ptr<platform::NSObject>& member) {
        const auto value = platform::objectCast<KQHIDDeviceElementValue>(member);
        line += platform::stringWithFormat(" %u/%u=%lld", value->hidUsagePage(), value->hidUsage(),
                                           value->integerValue());
      });
    }
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
    changed_.notify_all();
  }
  [[nodiscard]] std::size_t unsentBytes() const override {
    const std::lock_guard lock(mutex_);
    return unsent_;
  }
  bool waitUntilUnsentBelow(std::size_t bytes, milliseconds limit) override {
    std::unique_lock lock(mutex_);
    ++waits_;
    changed_.notify_all();
    return changed_.wait_for(lock, limit, [&] { return unsent_ < bytes; });
  }
  void noteRecordingEnded() override {
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(farewells_, 0);
    ++endings_;
  }
  int endings() {
    const std::lock_guard lock(mutex_);
    return endings_;
  }
  void sayFarewell() override {
    const std::lock_guard lock(mutex_);
    ++farewells_;
    changed_.notify_all();
  }

  void setUnsent(std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    unsent_ = bytes;
    changed_.notify_all();
  }
  std::vector<std::string> linesOnceThereAre(std::size_t count) {
    await([&] { return lines_.size() >= count; });
    return lines();
  }
  std::vector<std::string> lines() {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  void awaitFarewell() {
    await([&] { return farewells_ > 0; });
  }
  void awaitWaits(int count) {
    await([&] { return waits_ >= count; });
  }
  int farewells() {
    const std::lock_guard lock(mutex_);
    return farewells_;
  }

 private:
  template <class Condition>
  void await(Condition condition) {
    std::unique_lock lock(mutex_);
    ASSERT_TRUE(changed_.wait_for(lock, kPatience, condition));
  }
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
  std::size_t unsent_ = 0;
  int farewells_ = 0;
  int endings_ = 0;
  int waits_ = 0;
};

struct Client {
  explicit Client(DeviceMode mode = DeviceMode::Shared, UsageFilter filter = {},
                  const std::shared_ptr<Backlog>& backlog = unboundBacklog())
      : subscription(
            std::make_shared<Subscription>(sink, std::move(filter), mode, backlog->share(1000))) {}
  static std::shared_ptr<Backlog> unboundBacklog() {
    return std::make_shared<Backlog>(RouterLimits());
  }
  std::shared_ptr<NotingSink> sink = std::make_shared<NotingSink>();
  std::shared_ptr<Subscription> subscription;
};

class RoutedDeviceTest : public testing::Test {
 protected:
  // Two buttons, six bits of padding, one byte of X; report 7.
  static constexpr const char* kDescriptor =
      "85 07 05 09 19 01 29 02 15 00 25 01 75 01 95 02 81 02 75 06 95 01 81 03"
      "  05 01 09 30 15 81 25 7f 75 08 95 01 81 06";

  std::unique_ptr<RoutedDevice> device() {
    return std::make_unique<RoutedDevice>(
        DeviceDescription{0x100000001, "Mouse", 3, 1, 2, "test"},
        [this]() -> std::unique_ptr<OpenDevice> {
          ++opened_;
          if (onOpen_) return onOpen_();
          return std::make_unique<FedDevice>(&feed_, bytes(kDescriptor), waits_, &taking_);
        },
        [this](std::string_view line) {
          const std::lock_guard lock(logMutex_);
          log_.emplace_back(line);
        });
  }
  static void enter(RoutedDevice& device, const Client& client) {
    ASSERT_EQ(device.admit(client.subscription), nullptr);
    device.begin(client.subscription);
  }
  static std::int64_t refusal(RoutedDevice& device, const Client& client) {
    const auto error = device.admit(client.subscription);
    return error == nullptr ? 0 : error->code();
  }
  /// Whether the client has to wait for a place; `name` is noted when it is woken.
  bool waits(RoutedDevice& device, const Client& client, const std::string& name) {
    return device.waitsForPlace(client.subscription, [this, name] {
      const std::lock_guard lock(logMutex_);
      woken_.push_back(name);
      wokenMore_.notify_all();
    });
  }
  std::vector<std::string> wokenOnceThereAre(std::size_t count) {
    std::unique_lock lock(logMutex_);
    EXPECT_TRUE(wokenMore_.wait_for(lock, kPatience, [&] { return woken_.size() >= count; }));
    return woken_;
  }
  std::vector<std::string> log() {
    const std::lock_guard lock(logMutex_);
    return log_;
  }

  Feed feed_;
  Taking taking_;
  bool waits_ = false;
  std::atomic<int> opened_{0};
  std::function<std::unique_ptr<OpenDevice>()> onOpen_;
  std::mutex logMutex_;
  std::vector<std::string> log_;
  std::condition_variable wokenMore_;
  std::vector<std::string> woken_;
};

}  // namespace routeddevicetest
