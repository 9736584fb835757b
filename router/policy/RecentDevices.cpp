// SPDX-License-Identifier: Apache-2.0

#include "router/policy/RecentDevices.h"

#include <utility>

#include "router/policy/SystemServices.h"

namespace router {

namespace {

/// For what no watch notices, such as a driver that lets go of a device's interface. Longer than a
/// slow computer needs for a listing, which would look at all devices again each time this is over.
constexpr std::chrono::seconds kLongest{10};

}  // namespace

RecentDevices::RecentDevices(std::shared_ptr<const DeviceSources> sources,
                             std::function<Clock::time_point()> now)
    : sources_(std::move(sources)), now_(std::move(now)) {
  for (const auto& source : *sources_) {
    watches_.push_back(source->watch());
    watchesAll_ = watchesAll_ && watches_.back() != nullptr;
  }
}

std::optional<RoutableDevice> RecentDevices::device(const DeviceDescription& device) {
  return routableDevice(*recent(), device);
}

std::shared_ptr<const DeviceSources> RecentDevices::recent() {
  if (!watchesAll_) return sources_;
  const std::lock_guard lock(mutex_);
  const auto now = now_();
  if (!hasChanged() && recent_ != nullptr && now - since_ <= kLongest) return recent_;
  auto recent = std::make_shared<DeviceSources>();
  for (const auto& source : *sources_) {
    if (auto remembering = source->remembering()) recent->push_back(std::move(remembering));
  }
  since_ = now;
  return recent_ = std::move(recent);
}

/// Takes what every watch has noticed.
bool RecentDevices::hasChanged() {
  bool hasChanged = false;
  for (const auto& watch : watches_) hasChanged = watch->take() || hasChanged;
  return hasChanged;
}

}  // namespace router
