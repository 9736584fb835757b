// A device and those who have it routed.
//
// While at least one client does, the device is open and a thread of its own reads it; each time
// the number goes from none to one it is opened anew. When it goes away its clients' connections
// are ended in good order, and it stays away for as long as this object lives. When it fails, or is
// a recording and has been played to its end, they are ended likewise, and the next client finds it
// as a new one; whoever is slow to take the end of it holds up nobody.
//
// Threading: any thread but the device's own.
// Ownership: shares the subscriptions from waitsForPlace() or admit() to remove(), or to the report
//   after it.
// Errors: admit() returns the error with which the client is answered.
// Order: a subscription gets nothing before begin() and nothing after remove(). Places are given in
//   the order in which they are waited for.
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
  /// Null for a device that is not there any more; throws DeviceError.
  using Opener = std::function<std::unique_ptr<OpenDevice>()>;

  /// Called with no lock held, from any thread, the device's included. Must not wait, and must not
  /// hold the device.
  using Wake = std::function<void()>;

  RoutedDevice(DeviceDescription description, Opener open, RouterLog log);
  RoutedDevice(const RoutedDevice&) = delete;
  RoutedDevice& operator=(const RoutedDevice&) = delete;
  ~RoutedDevice();

  [[nodiscard]] const DeviceDescription& description() const { return description_; }

  /// Takes a place for the subscription or, where others leave none, has it wait for one; true
  /// then. `wake` is called once it has a place, or there will never be one, unless it is admitted
  /// or removed before.
  [[nodiscard]] bool waitsForPlace(const std::shared_ptr<Subscription>& subscription, Wake wake);
  /// Takes a place for the subscription, unless it has one, and opens the device if it is not open.
  /// Null, or why there is no place. In either case it waits no more.
  [[nodiscard]] std::shared_ptr<platform::NSError> admit(
      const std::shared_ptr<Subscription>& subscription);
  /// From now on the subscription, which was admitted, gets the reports.
  void begin(const std::shared_ptr<Subscription>& subscription);
  /// Does nothing for a subscription that neither has a place nor waits for one.
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
  /// Hands out what has become free. To be called without the lock.
  [[nodiscard]] std::vector<Wake> takeWakesLocked();
  std::shared_ptr<platform::NSError> prepare();
  void setSubscriptionsLocked(std::shared_ptr<const Subscriptions> subscriptions);
  /// Both do nothing for a playback that was given up in the meantime.
  void goneAway(Playback* playback);
  void hasEnded(Playback* playback, bool isPlayedToItsEnd);
  /// Those whose threads are about to return, to be destroyed without the lock.
  std::vector<std::unique_ptr<Playback>> takeOverPlaybacks();
  [[nodiscard]] std::shared_ptr<platform::NSError> goneError() const;

  const DeviceDescription description_;
  const Opener open_;
  const RouterLog log_;

  mutable std::mutex mutex_;
  std::vector<Waiting> waiting_;  // in the order in which they came
  std::shared_ptr<const Subscriptions>
      subscriptions_;  // replaced, never changed: the device's thread walks it unlocked
  std::atomic<std::uint64_t> subscriptionsVersion_{0};  // grows with each replacement
  std::unique_ptr<Playback> playback_;                  // there while the device is open
  // Have ended; their clients take the rest.
  std::vector<std::unique_ptr<Playback>> endedPlaybacks_;
  bool isGone_ = false;
};

}  // namespace router
