// SPDX-License-Identifier: Apache-2.0

#include "router/RoutedDevice.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "platform/foundation/Format.h"
#include "router/ReportDecoder.h"
#include "router/RouterErrors.h"

namespace router {

/// The open device and its thread. The destructor stops the thread and waits for it.
class RoutedDevice::Playback {
 public:
  explicit Playback(std::unique_ptr<OpenDevice> device)
      : device_(std::move(device)),
        decoder_(std::make_shared<const ReportDescriptor>(
            ReportDescriptor::parse(device_->reportDescriptor()))) {}
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;
  ~Playback() {
    stop_.raise();
    if (thread_.joinable()) thread_.join();
  }

  [[nodiscard]] bool isRunning() const { return thread_.joinable(); }
  void start(RoutedDevice* routed) {
    thread_ = std::thread([this, routed] { run(routed); });
  }
  /// Closes each client's connection once the client has read what was sent to it, because a
  /// closing connection waits only briefly. Nobody waits for a slower one. On the device's thread.
  void finish(const Subscriptions& all, const std::function<void(Subscription&)>& close) {
    constexpr std::chrono::milliseconds kMoment{50};
    const bool isPatient = device_->waitsForReaders() && all.size() == 1;
    const auto begin = std::chrono::steady_clock::now();
    Subscriptions left = all;
    for (std::chrono::milliseconds moment{0}; !left.empty(); moment = kMoment) {
      const auto passed = std::chrono::steady_clock::now() - begin;
      Subscriptions slow;
      for (const auto& each : left) {
        const bool isStalled = !isPatient && passed >= each->stallTimeout();
        const bool isOver = stop_.isRaised() || each->hasTakenAllWithin(moment) || isStalled;
        moment = std::chrono::milliseconds(0);  // one of them is waited for
        if (isOver)
          close(*each);
        else
          slow.push_back(each);
      }
      left.swap(slow);
    }
  }
  /// Whether it can be destroyed without waiting.
  [[nodiscard]] bool isOver() const { return isOver_.load(std::memory_order_acquire); }

 private:
  void run(RoutedDevice* routed) {
    const OpenDevice::Next last = play(routed);
    device_->releaseExclusive();  // before another client gets the place
    switch (last) {
      case OpenDevice::Next::Ended:
        routed->hasEnded(this, true);
        break;
      case OpenDevice::Next::Gone:
        routed->goneAway(this);
        break;
      case OpenDevice::Next::Report:  // it failed
        routed->hasEnded(this, false);
        break;
      case OpenDevice::Next::Stopped:
        break;
    }
    isOver_.store(true, std::memory_order_release);
  }

  /// Returns what followed the last report; Report means a failure.
  OpenDevice::Next play(RoutedDevice* routed) {
    try {
      std::span<const std::uint8_t> report;
      for (;;) {
        const auto next = device_->next(stop_, &report);
        noteLosses(subscriptionsOf(*routed));
        if (next != OpenDevice::Next::Report) return next;
        deliver(report, subscriptionsOf(*routed));
      }
    } catch (const std::exception& error) {
      routed->log_(platform::LogLine::of<row::deviceFails>(routed->description_.registryEntryID,
                                                           error.what()));
      return OpenDevice::Next::Report;
    }
  }

  /// The current subscriptions; takes the lock only after a change. A subscription removed since
  /// then discards its reports by itself.
  const Subscriptions& subscriptionsOf(const RoutedDevice& routed) {
    const auto version = routed.subscriptionsVersion_.load(std::memory_order_acquire);
    if (subscriptions_ == nullptr || version != seenVersion_) {
      const std::lock_guard lock(routed.mutex_);
      subscriptions_ = routed.subscriptions_;
      seenVersion_ = routed.subscriptionsVersion_.load(std::memory_order_relaxed);
    }
    return *subscriptions_;
  }

  void noteLosses(const Subscriptions& subscriptions) {
    const std::uint64_t lost = device_->lost();
    if (lost == seenLost_) return;
    for (const auto& subscription : subscriptions) subscription->noteLost(lost - seenLost_);
    seenLost_ = lost;
  }

  void deliver(std::span<const std::uint8_t> report, const Subscriptions& subscriptions) {
    const std::uint32_t reportID = decoder_.reportID(report);
    const bool isCovered = std::any_of(subscriptions.begin(), subscriptions.end(),
                                       [=](const auto& each) { return each->covers(reportID); });
    if (!isCovered) return;  // nobody may know what it says, so it is not decoded either
    ReportInTransit transit(report, reportID, decoder_.decode(report), device_->arrival());
    for (const auto& subscription : subscriptions) {
      if (!device_->waitsForReaders()) {
        subscription->deliver(&transit);
      } else {
        waitFor(subscription, subscriptions);
        subscription->deliverWithoutLoss(&transit);
      }
    }
  }

  /// A client that stops reading may hold up itself for ever, but no other client.
  void waitFor(const std::shared_ptr<Subscription>& subscription, const Subscriptions& all) {
    const bool isAlone = all.size() == 1;
    if (subscription->waitForRoom(stop_, isAlone)) return;
    subscription->end();
    subscription->sayFarewell();
  }

  const std::unique_ptr<OpenDevice> device_;
  ReportDecoder decoder_;
  StopSignal stop_;
  std::atomic<bool> isOver_{false};
  std::shared_ptr<const Subscriptions> subscriptions_;  // used by the device's thread
  std::uint64_t seenVersion_ = 0;
  std::uint64_t seenLost_ = 0;
  std::thread thread_;
};

RoutedDevice::RoutedDevice(DeviceDescription description, Opener open, RouterLog log)
    : description_(std::move(description)),
      open_(std::move(open)),
      log_(std::move(log)),
      subscriptions_(std::make_shared<const Subscriptions>()) {}

RoutedDevice::~RoutedDevice() {
  // A playback that finds that it was taken out has no one left to notify.
  std::unique_ptr<Playback> playing;
  std::vector<std::unique_ptr<Playback>> ended;
  const std::lock_guard lock(mutex_);
  playing = std::move(playback_);
  ended = std::move(endedPlaybacks_);
}

bool RoutedDevice::isGone() const {
  const std::lock_guard lock(mutex_);
  return isGone_;
}

std::shared_ptr<platform::NSError> RoutedDevice::admit(
    const std::shared_ptr<Subscription>& subscription) {
  if (auto error = takePlace(subscription)) return error;
  auto error = prepare(subscription);
  if (error != nullptr) remove(subscription);
  return error;
}

bool RoutedDevice::isTakenFor(DeviceMode mode) const {
  if (mode == DeviceMode::Exclusive) return !subscriptions_->empty();
  return std::any_of(subscriptions_->begin(), subscriptions_->end(),
                     [](const auto& other) { return other->mode() == DeviceMode::Exclusive; });
}

bool RoutedDevice::waitsForPlace(const std::shared_ptr<Subscription>& subscription, Wake wake) {
  const std::lock_guard lock(mutex_);
  if (isGone_) return false;
  if (isTakenFor(subscription->mode())) {
    waiting_.push_back({subscription, std::move(wake)});
    return true;
  }
  takePlaceLocked(subscription);
  return false;
}

std::shared_ptr<platform::NSError> RoutedDevice::takePlace(
    const std::shared_ptr<Subscription>& subscription) {
  const std::lock_guard lock(mutex_);
  forgetWaitingLocked(subscription);
  if (isGone_) return goneError();
  if (hasPlaceLocked(subscription)) return nullptr;
  if (isTakenFor(subscription->mode())) {
    return routerError(IOReturn::ExclusiveAccess,
                       platform::stringWithFormat("the device \"%s\" is in use by another client",
                                                  description_.name),
                       description_.registryEntryID);
  }
  takePlaceLocked(subscription);
  return nullptr;
}

void RoutedDevice::takePlaceLocked(const std::shared_ptr<Subscription>& subscription) {
  auto longer = std::make_shared<Subscriptions>(*subscriptions_);
  longer->push_back(subscription);
  setSubscriptionsLocked(std::move(longer));
}

bool RoutedDevice::hasPlaceLocked(const std::shared_ptr<Subscription>& subscription) const {
  return std::find(subscriptions_->begin(), subscriptions_->end(), subscription) !=
         subscriptions_->end();
}

void RoutedDevice::forgetWaitingLocked(const std::shared_ptr<Subscription>& subscription) {
  std::erase_if(waiting_, [&](const Waiting& each) { return each.subscription == subscription; });
}

std::vector<RoutedDevice::Wake> RoutedDevice::takeWakesLocked() {
  std::vector<Wake> wakes;
  for (auto each = waiting_.begin(); each != waiting_.end();) {
    const bool waitsOn = !isGone_ && isTakenFor(each->subscription->mode());
    if (waitsOn) {
      ++each;
      continue;
    }
    if (!isGone_) takePlaceLocked(each->subscription);
    wakes.push_back(std::move(each->wake));
    each = waiting_.erase(each);
  }
  return wakes;
}

/// Opens the device unless it is open. Reading a file takes time, so this happens outside the lock;
/// if two threads open it at once, one wins. A client that has left in the meantime leaves nothing
/// open.
std::shared_ptr<platform::NSError> RoutedDevice::prepare(
    const std::shared_ptr<Subscription>& subscription) {
  {
    const std::lock_guard lock(mutex_);
    if (playback_ != nullptr) return nullptr;
  }
  std::unique_ptr<Playback> opened;
  try {
    opened = openFor(subscription->mode());
    if (opened == nullptr) return goneError();
  } catch (const DeviceError& error) {
    return routerError(ioReturnOf(error.code()), error.what(), description_.registryEntryID);
  } catch (const std::exception& error) {
    return routerError(IOReturn::IOError,
                       std::string("the device's report descriptor: ") + error.what(),
                       description_.registryEntryID);
  }
  const std::lock_guard lock(mutex_);
  if (playback_ == nullptr && hasPlaceLocked(subscription)) playback_.swap(opened);
  return nullptr;
}

/// Null if the device no longer exists.
std::unique_ptr<RoutedDevice::Playback> RoutedDevice::openFor(DeviceMode mode) {
  auto device = open_();
  if (device == nullptr) return nullptr;
  OpenDevice& opened = *device;
  auto playback = std::make_unique<Playback>(std::move(device));
  // Last: while an unusable device is refused, nobody else is deprived of it.
  if (mode == DeviceMode::Exclusive) opened.takeExclusively();
  return playback;
}

void RoutedDevice::begin(const std::shared_ptr<Subscription>& subscription) {
  const std::lock_guard lock(mutex_);
  if (!hasPlaceLocked(subscription) || playback_ == nullptr) return;
  subscription->begin();
  if (!playback_->isRunning()) playback_->start(this);
}

void RoutedDevice::remove(const std::shared_ptr<Subscription>& subscription) {
  subscription->end();
  closeExclusive(subscription);
  // Destroyed, and their threads joined, outside the lock.
  std::unique_ptr<Playback> ended;
  std::vector<std::unique_ptr<Playback>> over;
  std::vector<Wake> wakes;
  {
    const std::lock_guard lock(mutex_);
    over = takeOverPlaybacks();
    forgetWaitingLocked(subscription);
    auto shorter = std::make_shared<Subscriptions>(*subscriptions_);
    std::erase(*shorter, subscription);
    setSubscriptionsLocked(std::move(shorter));
    if (subscriptions_->empty()) ended = std::move(playback_);
    wakes = takeWakesLocked();
  }
  for (const Wake& wake : wakes) wake();
}

/// Closes the device of an exclusive client while that still has its place: what others could not
/// take yet, they are not to be offered.
void RoutedDevice::closeExclusive(const std::shared_ptr<Subscription>& subscription) {
  if (subscription->mode() != DeviceMode::Exclusive) return;
  std::unique_ptr<Playback> closed;  // destroyed after the lock
  const std::lock_guard lock(mutex_);
  if (hasPlaceLocked(subscription)) closed = std::move(playback_);
}

void RoutedDevice::setSubscriptionsLocked(std::shared_ptr<const Subscriptions> subscriptions) {
  subscriptions_ = std::move(subscriptions);
  subscriptionsVersion_.fetch_add(1, std::memory_order_release);
}

void RoutedDevice::goneAway(Playback* playback) {
  std::shared_ptr<const Subscriptions> left;
  std::vector<Wake> wakes;
  {
    const std::lock_guard lock(mutex_);
    if (playback_.get() != playback) return;
    isGone_ = true;
    left = subscriptions_;
    wakes = takeWakesLocked();
  }
  for (const Wake& wake : wakes) wake();
  log_(platform::LogLine::of<row::deviceGone>(description_.registryEntryID, description_.name));
  playback->finish(*left, [](Subscription& each) { each.sayFarewell(); });
}

void RoutedDevice::hasEnded(Playback* playback, bool isPlayedToItsEnd) {
  std::shared_ptr<const Subscriptions> left;
  std::vector<Wake> wakes;
  {
    const std::lock_guard lock(mutex_);
    if (playback_.get() != playback) return;
    endedPlaybacks_.push_back(std::move(playback_));
    left = subscriptions_;
    setSubscriptionsLocked(std::make_shared<const Subscriptions>());
    wakes = takeWakesLocked();
  }
  for (const Wake& wake : wakes) wake();
  if (isPlayedToItsEnd) {
    log_(platform::LogLine::of<row::devicePlayed>(description_.registryEntryID, description_.name));
  }
  playback->finish(*left, [isPlayedToItsEnd](Subscription& each) {
    // A client that came too late to get any of it, or has left, is to get it when it comes again.
    if (isPlayedToItsEnd && each.isActive()) each.noteRecordingEnded();
    each.sayFarewell();
  });
}

std::vector<std::unique_ptr<RoutedDevice::Playback>> RoutedDevice::takeOverPlaybacks() {
  const auto over = std::partition(endedPlaybacks_.begin(), endedPlaybacks_.end(),
                                   [](const auto& playback) { return !playback->isOver(); });
  std::vector<std::unique_ptr<Playback>> result(std::make_move_iterator(over),
                                                std::make_move_iterator(endedPlaybacks_.end()));
  endedPlaybacks_.erase(over, endedPlaybacks_.end());
  return result;
}

std::shared_ptr<platform::NSError> RoutedDevice::goneError() const {
  return routerError(
      IOReturn::NoDevice,
      platform::stringWithFormat("the device \"%s\" has gone away", description_.name),
      description_.registryEntryID);
}

}  // namespace router
