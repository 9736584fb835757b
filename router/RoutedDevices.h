// SPDX-License-Identifier: Apache-2.0

// The devices of all sources, and those that clients use or have used.
//
// Threading: any thread. Listing may wait for a disk or the kernel.
// Ownership: a device stays as long as somebody uses it; others stay until there are too many. One
//   that was removed makes room for itself when it is listed again: the kernel keeps a device, and
//   its ID, while its driver is exchanged. Whoever had it before does not get it back unasked.
// Errors: a problem of a source is logged when it first appears, not every time.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "router/Devices.h"
#include "router/RoutedDevice.h"
#include "router/RouterLog.h"

namespace router {

using DeviceSources = std::vector<std::unique_ptr<DeviceSource>>;

class RoutedDevices {
 public:
  RoutedDevices(std::shared_ptr<const DeviceSources> sources, std::size_t most, RouterLog log)
      : sources_(std::move(sources)), most_(most), log_(std::move(log)) {}

  struct WithDescriptor {
    DeviceDescription device;
    std::optional<std::vector<std::uint8_t>> reportDescriptor;  ///< nothing if it cannot be read
  };

  [[nodiscard]] std::vector<DeviceDescription> list();
  /// Looks at each device once, however many there are.
  [[nodiscard]] std::vector<WithDescriptor> listWithDescriptors();
  /// Nothing if no source has such a device, or its descriptor cannot be read now.
  [[nodiscard]] std::optional<std::vector<std::uint8_t>> reportDescriptorOf(
      std::uint64_t registryEntryID) const;
  /// One for each source; null for one whose changes cannot be watched.
  [[nodiscard]] std::vector<std::unique_ptr<DeviceWatch>> watches() const;
  /// Null if no source has such a device.
  [[nodiscard]] std::shared_ptr<RoutedDevice> withID(std::uint64_t registryEntryID);

 private:
  void logNew(const std::vector<std::string>& problems);
  [[nodiscard]] std::shared_ptr<RoutedDevice> knownWithID(std::uint64_t registryEntryID);
  [[nodiscard]] std::shared_ptr<RoutedDevice> makeDevice(const DeviceDescription& description);
  [[nodiscard]] std::optional<DeviceDescription> describe(std::uint64_t registryEntryID);
  [[nodiscard]] std::vector<std::shared_ptr<RoutedDevice>> takeUnused();

  const std::shared_ptr<const DeviceSources> sources_;
  const std::size_t most_;
  const RouterLog log_;
  std::mutex mutex_;
  std::map<std::uint64_t, std::shared_ptr<RoutedDevice>> devices_;
  std::set<std::string> problems_;  // already logged
};

}  // namespace router
