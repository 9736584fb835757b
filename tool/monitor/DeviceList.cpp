// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/DeviceList.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace tool::monitor {

namespace {

/// Whether this user may have it.
std::string stateOf(const wlhid::Device& device) {
  switch (device.permission) {
    case wlhid::Permission::Yes:
      return "you may";
    case wlhid::Permission::Partly:
      return "in part";
    case wlhid::Permission::Administrator:
      return "ask admin";
    case wlhid::Permission::No:
      return "no";
    case wlhid::Permission::Unknown:
      break;
  }
  return "unknown";
}

ListedDevice listed(const wlhid::Device& device) {
  return {device.id, device.name.empty() ? "(no name)" : device.name,
          device.collections.empty() ? "" : device.collections.front().name(),
          device.deviceClass == wlhid::DeviceClass::None ? "-" : nameOf(device.deviceClass),
          stateOf(device)};
}

}  // namespace

void DeviceList::set(const std::vector<wlhid::Device>& devices) {
  devices_.clear();
  for (const wlhid::Device& device : devices) put(device);
}

void DeviceList::put(const wlhid::Device& device) {
  devices_.insert_or_assign(device.id, device);
}

void DeviceList::remove(std::uint64_t id) {
  devices_.erase(id);
}

const wlhid::Device* DeviceList::find(std::uint64_t id) const {
  const auto found = devices_.find(id);
  return found == devices_.end() ? nullptr : &found->second;
}

void DeviceList::showIn(Shown& shown, const std::string& openState) const {
  const std::optional<std::uint64_t> chosen = shown.cursor < shown.devices.size()
                                                  ? std::optional(shown.devices[shown.cursor].id)
                                                  : shown.open;
  shown.devices.clear();
  for (const auto& [id, device] : devices_) {
    shown.devices.push_back(listed(device));
    if (shown.open == id && !openState.empty()) shown.devices.back().state = openState;
  }
  const auto next =
      std::ranges::find_if(shown.devices, [&](const auto& each) { return each.id >= chosen; });
  shown.cursor = static_cast<std::size_t>(std::distance(shown.devices.begin(), next));
  if (shown.cursor == shown.devices.size() && shown.cursor > 0) --shown.cursor;
}

}  // namespace tool::monitor
