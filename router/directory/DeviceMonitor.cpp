// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DeviceMonitor.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace router {

std::shared_ptr<void> DeviceMonitor::subscribe(std::function<void()> changed) {
  auto subscription = subscribers_->add(std::move(changed));
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
  subscribers_->clear();
  std::thread ended;
  {
    const std::lock_guard lock(mutex_);
    stop_.raise();
    ended.swap(thread_);
  }
  if (ended.joinable()) ended.join();
}

void DeviceMonitor::run() {
  while (waitForChange()) {
    if (list()) subscribers_->tell();
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
    if (isChange || !subscribers_->isEmpty()) return true;
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

}  // namespace router
