// SPDX-License-Identifier: Apache-2.0

#include "router/RoutedDevices.h"

#include <iterator>
#include <utility>

namespace router {

namespace {

std::optional<std::vector<std::uint8_t>> descriptorOf(const DeviceSource& source,
                                                      std::uint64_t registryEntryID) try {
  return source.reportDescriptorOf(registryEntryID);
} catch (const DeviceError&) {
  return std::nullopt;
}

}  // namespace

std::vector<DeviceDescription> RoutedDevices::list() {
  std::vector<DeviceDescription> devices;
  std::vector<std::string> problems;
  for (const auto& source : *sources_) {
    for (DeviceDescription& device : source->list(&problems)) devices.push_back(std::move(device));
  }
  logNew(problems);
  return devices;
}

std::vector<RoutedDevices::WithDescriptor> RoutedDevices::listWithDescriptors() {
  std::vector<WithDescriptor> devices;
  std::vector<std::string> problems;
  for (const auto& source : *sources_) {
    const auto remembering = source->remembering();
    const DeviceSource& asked = remembering == nullptr ? *source : *remembering;
    for (DeviceDescription& device : asked.list(&problems)) {
      auto descriptor = descriptorOf(asked, device.registryEntryID);
      devices.push_back({std::move(device), std::move(descriptor)});
    }
  }
  logNew(problems);
  return devices;
}

/// Those of the last listing have been logged.
void RoutedDevices::logNew(const std::vector<std::string>& problems) {
  std::set<std::string> known(problems.begin(), problems.end());
  {
    const std::lock_guard lock(mutex_);
    known.swap(problems_);
  }
  for (const std::string& problem : problems) {
    if (!known.contains(problem)) log_(platform::LogLine::of<row::ignored>(problem));
  }
}

std::optional<std::vector<std::uint8_t>> RoutedDevices::reportDescriptorOf(
    std::uint64_t registryEntryID) const {
  for (const auto& source : *sources_) {
    if (auto descriptor = descriptorOf(*source, registryEntryID)) return descriptor;
  }
  return std::nullopt;
}

std::vector<std::unique_ptr<DeviceWatch>> RoutedDevices::watches() const {
  std::vector<std::unique_ptr<DeviceWatch>> watches;
  for (const auto& source : *sources_) watches.push_back(source->watch());
  return watches;
}

std::shared_ptr<RoutedDevice> RoutedDevices::withID(std::uint64_t registryEntryID) {
  auto known = knownWithID(registryEntryID);
  if (known != nullptr && !known->isGone()) return known;
  // Listed anew: a device may have been added since the router started, and one that was removed
  // may be back.
  const auto description = describe(registryEntryID);
  if (!description) return known;
  const auto unused = takeUnused();
  auto device = makeDevice(*description);
  const std::lock_guard lock(mutex_);
  std::shared_ptr<RoutedDevice>& kept = devices_[registryEntryID];
  if (kept == nullptr || kept == known) kept = std::move(device);
  return kept;
}

std::shared_ptr<RoutedDevice> RoutedDevices::knownWithID(std::uint64_t registryEntryID) {
  const std::lock_guard lock(mutex_);
  const auto known = devices_.find(registryEntryID);
  return known == devices_.end() ? nullptr : known->second;
}

std::shared_ptr<RoutedDevice> RoutedDevices::makeDevice(const DeviceDescription& description) {
  return std::make_shared<RoutedDevice>(
      description,
      [sources = sources_,
       registryEntryID = description.registryEntryID]() -> std::unique_ptr<OpenDevice> {
        for (const auto& source : *sources) {
          if (auto opened = source->open(registryEntryID)) return opened;
        }
        return nullptr;
      },
      log_);
}

std::optional<DeviceDescription> RoutedDevices::describe(std::uint64_t registryEntryID) {
  std::optional<DeviceDescription> found;
  for (DeviceDescription& device : list()) {
    if (device.registryEntryID == registryEntryID) found = std::move(device);
  }
  return found;
}

/// The devices are to be destroyed without the lock.
std::vector<std::shared_ptr<RoutedDevice>> RoutedDevices::takeUnused() {
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<RoutedDevice>> unused;
  if (devices_.size() < most_) return unused;
  for (auto device = devices_.begin(); device != devices_.end();) {
    const bool isUnused = device->second.use_count() == 1;
    if (isUnused) unused.push_back(std::move(device->second));
    device = isUnused ? devices_.erase(device) : std::next(device);
  }
  return unused;
}

}  // namespace router
