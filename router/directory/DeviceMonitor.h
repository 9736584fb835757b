// SPDX-License-Identifier: Apache-2.0

// Keeps the list of devices current for as long as somebody wants to know.
//
// Threading: any thread. Subscribers are told on the monitor's own thread, with no lock held, and
//   must not wait.
// Ownership: owns one thread from the first subscription on. A subscription lasts until its token
//   goes; one notice may still be on its way then.
// Errors: those of the sources are theirs to report; while they cannot list, the last list stays.
//   Where changes cannot be watched, the devices are listed from time to time.
// Order: a subscriber that is told finds the change in devices(). What changed before subscribe()
//   returned is in devices() afterwards; whatever changes later is told.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/services/Subscribers.h"
#include "router/Devices.h"
#include "router/RouterLimits.h"
#include "router/StopSignal.h"
#include "router/control/DeviceListing.h"

namespace router {

class DeviceMonitor {
 public:
  using Devices = std::vector<ListedDevice>;
  struct Sources {
    std::function<Devices()> list;
    /// One for each source; null for one whose changes cannot be watched.
    std::function<std::vector<std::unique_ptr<DeviceWatch>>()> watches;
  };

  DeviceMonitor(Sources sources, const RouterLimits& limits)
      : sources_(std::move(sources)), limits_(limits) {}
  DeviceMonitor(const DeviceMonitor&) = delete;
  DeviceMonitor& operator=(const DeviceMonitor&) = delete;
  ~DeviceMonitor() { stop(); }

  /// The first one waits for the devices to be listed.
  [[nodiscard]] std::shared_ptr<void> subscribe(std::function<void()> changed);
  /// As listed last; empty before the first subscription.
  [[nodiscard]] std::shared_ptr<const Devices> devices() const;
  /// From then on nobody is told.
  void stop();

 private:
  void begin();
  void run();
  bool waitForChange();
  [[nodiscard]] int patience() const;
  bool takeChanges();
  bool list();

  const Sources sources_;
  const RouterLimits limits_;
  const std::shared_ptr<platform::Subscribers> subscribers_ =
      std::make_shared<platform::Subscribers>();
  std::once_flag begun_;
  StopSignal stop_;
  std::vector<std::unique_ptr<DeviceWatch>> watches_;  // the monitor's thread's
  bool watchesAll_ = true;                             // the monitor's thread's
  bool isSettling_ = true;                             // the monitor's thread's
  mutable std::mutex mutex_;
  std::shared_ptr<const Devices> devices_ = std::make_shared<const Devices>();
  std::thread thread_;
};

}  // namespace router
