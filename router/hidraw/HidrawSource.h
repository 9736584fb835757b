// SPDX-License-Identifier: Apache-2.0

// The computer's HID devices, by way of the kernel's hidraw nodes.
//
// A device is listed once it can be opened, since udev gives this process the right to a node only
// after it has recorded the device; one that cannot be opened by then is listed after a second,
// or after the time that the owner sets.
// Listing needs no right.
//
// A registry entry ID is made of the number in the kernel's name of the HID device (HidName.h): it
// is the same for every process, outlives a restart of the router, and is never used again while
// the system is up.
//
// Threading, Order: as in Devices.h.
// Errors: a device that cannot be identified or described is left out of a listing and reported as
//   one line, "hidraw0: cause". open() throws DeviceError: with permission_denied or
//   operation_not_permitted if this process has no right to the device, and no_such_device if it
//   has just been removed.
#pragma once

#include "router/Devices.h"
#include "router/hidraw/HidrawSystem.h"

namespace router {

class HidrawSource final : public DeviceSource {
 public:
  explicit HidrawSource(HidrawSystem system = HidrawSystem::real(),
                        std::chrono::milliseconds udevTime = RouterLimits().udevTime)
      : system_(std::move(system)), udevTime_(udevTime) {}
  std::vector<DeviceDescription> list(std::vector<std::string>* returnProblems) const override;
  [[nodiscard]] std::unique_ptr<OpenDevice> open(std::uint64_t registryEntryID) const override;
  [[nodiscard]] std::optional<DeviceFacts> factsOf(std::uint64_t registryEntryID) const override;
  [[nodiscard]] std::optional<std::vector<std::uint8_t>> reportDescriptorOf(
      std::uint64_t registryEntryID) const override;
  [[nodiscard]] std::unique_ptr<DeviceWatch> watch() const override {
    return system_.tree->watch();
  }
  [[nodiscard]] std::unique_ptr<DeviceSource> remembering() const override;

 private:
  struct Found;
  [[nodiscard]] bool isReady(const SystemDevice& hidraw) const;
  [[nodiscard]] std::optional<Found> identify(SystemDevice hidraw, std::string* problem) const;
  [[nodiscard]] std::optional<Found> find(std::uint64_t registryEntryID) const;
  [[nodiscard]] DeviceDescription describe(const Found& found) const;

  const HidrawSystem system_;
  const std::chrono::milliseconds udevTime_;
};

}  // namespace router
