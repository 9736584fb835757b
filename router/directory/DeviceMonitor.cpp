// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DeviceMonitor.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace router {

class DeviceMonitor::Subscription {
 public:
  Subscription(std::weak_ptr<DeviceMonitor> monitor, std::uint64_t number)
      : monitor_(std::move(monitor)), number_(number) {}
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription() {
    if (const auto monitor = monitor_.lock()) monitor->unsubscribe(number_);
  }

 private:
  const std::weak_ptr<DeviceMonitor> monitor_;
  const std::uint64_t number_;
};

std::shared_ptr<void> DeviceMonitor::subscribe(std::function<void()> changed) {
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(mutex_);
    number = ++latest_;
    subscribers_.emplace(number, std::move(changed));
  }
  auto subscription = std::make_shared<Subscription>(weak_from_this(), number);
  std::call_once(begun_, [this] { begin(); });
  return subscription;
}

void DeviceMonitor::begin() {
  // First, so that nothing happens between the listing and the watch.
  for (auto& watch : sources_.watches()) {
    watchesAll_ = watchesAll_ && watch != nullptr;
    if (watch != nullptr) watches_.push_back(std::move(watch));
  }
  list();
  const std::lock_guard lock(mutex_);
  if (!stop_.isRaised()) thread_ = std::thread([this] { run(); });
}

std::shared_ptr<const DeviceMonitor::Devices> DeviceMonitor::devices() const {
  const std::lock_guard lock(mutex_);
  return devices_;
}

void DeviceMonitor::stop() {
  std::thread ended;
  {
    const std::lock_guard lock(mutex_);
    stop_.raise();
    subscribers_.clear();
    ended.swap(thread_);
  }
  if (ended.joinable()) ended.join();
}

void DeviceMonitor::unsubscribe(std::uint64_t number) {
  std::function<void()> dropped;  // without the lock
  const std::lock_guard lock(mutex_);
  const auto found = subscribers_.find(number);
  if (found == subscribers_.end()) return;
  dropped = std::move(found->second);
  subscribers_.erase(found);
}

bool DeviceMonitor::hasSubscribers() const {
  const std::lock_guard lock(mutex_);
  return !subscribers_.empty();
}

void DeviceMonitor::run() {
  while (waitForChange()) {
    if (list()) tell();
    if (stop_.waitUntil(std::chrono::steady_clock::now() + limits_.directoryInterval)) return;
  }
}

/// Until the devices may have changed; false at the end.
bool DeviceMonitor::waitForChange() {
  std::vector<pollfd> polls{{stop_.descriptor(), POLLIN, 0}};
  for (const auto& watch : watches_) polls.push_back({watch->descriptor(), POLLIN, 0});
  while (!stop_.isRaised()) {
    const int ready = ::poll(polls.data(), polls.size(), patience());
    if (stop_.isRaised()) break;
    const bool isChange = ready > 0 && takeChanges();
    if (ready != 0 && !isChange) continue;
    isSettling_ = isChange;
    if (isChange || hasSubscribers()) return true;
  }
  return false;
}

/// For poll(2).
int DeviceMonitor::patience() const {
  if (isSettling_) return static_cast<int>(limits_.directorySettling.count());
  return watchesAll_ ? -1 : static_cast<int>(limits_.directoryPoll.count());
}

bool DeviceMonitor::takeChanges() {
  bool any = false;
  for (const auto& watch : watches_) any = watch->take() || any;
  return any;
}

/// Whether anything is different. Without a list, the last one stays.
bool DeviceMonitor::list() try {
  auto devices = std::make_shared<const Devices>(sources_.list());
  const std::lock_guard lock(mutex_);
  if (*devices == *devices_) return false;
  devices_ = std::move(devices);
  return true;
} catch (const std::exception&) {
  return false;
}

void DeviceMonitor::tell() {
  std::vector<std::function<void()>> told;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [number, changed] : subscribers_) told.push_back(changed);
  }
  for (const auto& changed : told) changed();
}

}  // namespace router
