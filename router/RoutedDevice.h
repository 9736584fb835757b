// A device and those who have it routed.
//
// While at least one client does, the device is open and a thread of its own reads it; each time
// the number goes from none to one it is opened anew. When it goes away its clients' connections
// are ended in good order, and it stays away for as long as this object lives. When it fails, or is
// a recording and has been played to its end, they are ended likewise, and the next client finds it
// as a new one; whoever is slow to take the end of it holds up nobody.
//
// Threading: any thread but the device's own.
// Ownership: shares the subscriptions from admit() to remove(), or to the report after it.
// Errors: admit() returns the error with which the client is answered.
// Order: a subscription gets nothing before begin() and nothing after remove().
#pragma once

#include <atomic>
#include <condition_variable>
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

  /// `handOverGrace` is how long admit() waits at most for a place.
  RoutedDevice(DeviceDescription description, Opener open, RouterLog log,
               std::chrono::milliseconds handOverGrace);
  RoutedDevice(const RoutedDevice&) = delete;
  RoutedDevice& operator=(const RoutedDevice&) = delete;
  ~RoutedDevice();

  [[nodiscard]] const DeviceDescription& description() const { return description_; }

  /// Takes a place for the subscription and opens the device if it is not open. Null, or why there
  /// is no place. A client that stops and starts again comes by a new connection, and the end of
  /// the old one may be noticed later than the new start: for a moment, therefore, this waits for a
  /// place to become free.
  [[nodiscard]] std::shared_ptr<platform::NSError> admit(
      const std::shared_ptr<Subscription>& subscription);
  /// From now on the subscription, which was admitted, gets the reports.
  void begin(const std::shared_ptr<Subscription>& subscription);
  /// Does nothing for a subscription that has no place.
  void remove(const std::shared_ptr<Subscription>& subscription);

 private:
  using Subscriptions = std::vector<std::shared_ptr<Subscription>>;
  class Playback;

  std::shared_ptr<platform::NSError> takePlace(const std::shared_ptr<Subscription>& subscription);
  [[nodiscard]] bool isTakenFor(DeviceMode mode) const;
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
  const std::chrono::milliseconds handOverGrace_;

  mutable std::mutex mutex_;
  std::condition_variable placeBecameFree_;
  std::shared_ptr<const Subscriptions>
      subscriptions_;  // replaced, never changed: the device's thread walks it unlocked
  std::atomic<std::uint64_t> subscriptionsVersion_{0};  // grows with each replacement
  std::unique_ptr<Playback> playback_;  // there while the device is open
  // Have ended; their clients take the rest.
  std::vector<std::unique_ptr<Playback>> endedPlaybacks_;
  bool isGone_ = false;
};

}  // namespace router
