// SPDX-License-Identifier: Apache-2.0

// A device and the clients that have it routed.
//
// While there is at least one client, the device is open and read by a thread of its own; whenever
// the first client arrives it is opened anew. When the device is removed, its clients' connections
// are closed gracefully, and it stays gone as long as this object lives. When it fails, or is a
// recording that has been played to its end, they are closed too, and the next client gets a fresh
// device; a client that is slow to read the rest delays no one.
//
// For an exclusive client the device is taken from everybody else on the computer, until it has
// been closed or has failed. Only then is the client's place free, so that the next one can take
// it.
//
// Threading: any thread but the device's own.
// Ownership: shares the subscriptions from waitsForPlace() or admit() to remove(), or to the report
//   after it.
// Errors: admit() returns the error to reply to the client with.
// Order: a subscription gets nothing before begin() and nothing after remove(). Places are given in
//   the order in which they were asked for.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/foundation/NSError.h"
#include "router/Devices.h"
#include "router/RouterLog.h"
#include "router/Subscription.h"

namespace router {

class RoutedDevice {
 public:
  /// Null if the device no longer exists; throws DeviceError.
  using Opener = std::function<std::unique_ptr<OpenDevice>()>;

  /// Called with no lock held, from any thread, including the device's. Must not wait, and must not
  /// keep the device alive.
  using Wake = std::function<void()>;

  RoutedDevice(DeviceDescription description, Opener open, RouterLog log);
  RoutedDevice(const RoutedDevice&) = delete;
  RoutedDevice& operator=(const RoutedDevice&) = delete;
  ~RoutedDevice();

  [[nodiscard]] const DeviceDescription& description() const { return description_; }
  /// Whether it was removed while it was open.
  [[nodiscard]] bool isGone() const;

  /// Takes a place for the subscription. If other clients leave no room, queues it for one and
  /// returns true. `wake` is called once it has a place, or can no longer get one, unless it is
  /// admitted or removed before.
  [[nodiscard]] bool waitsForPlace(const std::shared_ptr<Subscription>& subscription, Wake wake);
  /// Takes a place for the subscription, unless it has one, and opens the device if it is not open.
  /// Returns null, or the reason why it was not admitted. Either way it no longer waits.
  [[nodiscard]] std::shared_ptr<platform::NSError> admit(
      const std::shared_ptr<Subscription>& subscription);
  /// From now on the admitted subscription gets the reports.
  void begin(const std::shared_ptr<Subscription>& subscription);
  /// Does nothing if the subscription neither has a place nor waits for one.
  void remove(const std::shared_ptr<Subscription>& subscription);

 private:
  using Subscriptions = std::vector<std::shared_ptr<Subscription>>;
  class Playback;
  struct Waiting {
    std::shared_ptr<Subscription> subscription;
    Wake wake;
  };

  std::shared_ptr<platform::NSError> takePlace(const std::shared_ptr<Subscription>& subscription);
  void takePlaceLocked(const std::shared_ptr<Subscription>& subscription);
  [[nodiscard]] bool hasPlaceLocked(const std::shared_ptr<Subscription>& subscription) const;
  [[nodiscard]] bool isTakenFor(DeviceMode mode) const;
  void forgetWaitingLocked(const std::shared_ptr<Subscription>& subscription);
  /// Assigns places that have become free. The wakes are to be called without the lock.
  [[nodiscard]] std::vector<Wake> takeWakesLocked();
  std::shared_ptr<platform::NSError> prepare(const std::shared_ptr<Subscription>& subscription);
  std::unique_ptr<Playback> openFor(DeviceMode mode);
  void closeExclusive(const std::shared_ptr<Subscription>& subscription);
  void setSubscriptionsLocked(std::shared_ptr<const Subscriptions> subscriptions);
  /// These two do nothing if the playback has been given up in the meantime.
  void goneAway(Playback* playback);
  void hasEnded(Playback* playback, bool isPlayedToItsEnd);
  /// Playbacks whose threads are about to return, to be destroyed without the lock.
  std::vector<std::unique_ptr<Playback>> takeOverPlaybacks();
  [[nodiscard]] std::shared_ptr<platform::NSError> goneError() const;

  const DeviceDescription description_;
  const Opener open_;
  const RouterLog log_;

  mutable std::mutex mutex_;
  std::vector<Waiting> waiting_;  // in the order in which they came
  std::shared_ptr<const Subscriptions>
      subscriptions_;  // replaced, never changed: the device's thread iterates over it unlocked
  std::atomic<std::uint64_t> subscriptionsVersion_{0};  // grows with each replacement
  std::unique_ptr<Playback> playback_;                  // set while the device is open
  // At their end, but their clients are still reading the rest.
  std::vector<std::unique_ptr<Playback>> endedPlaybacks_;
  bool isGone_ = false;
};

}  // namespace router
