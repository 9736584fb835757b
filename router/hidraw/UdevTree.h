// SPDX-License-Identifier: Apache-2.0

// The devices as libudev lists them, and their report descriptors from sysfs.
//
// libudev's objects belong to one thread, so each call makes its own.
//
// Threading, Errors, Order: as in DeviceTree.h.
#pragma once

#include "router/hidraw/DeviceTree.h"
#include "router/hidraw/NodeWatch.h"

namespace router {

class UdevTree final : public DeviceTree {
 public:
  [[nodiscard]] std::vector<SystemDevice> initialized(const std::string& subsystem) const override;
  [[nodiscard]] std::vector<SystemDevice> below(const std::string& path,
                                                const std::string& subsystem) const override;
  [[nodiscard]] std::optional<SystemDevice> parentOf(const std::string& path) const override;
  [[nodiscard]] std::optional<SystemDevice> ancestorOf(const std::string& path,
                                                       const std::string& subsystem,
                                                       const std::string& type) const override;
  [[nodiscard]] std::optional<SystemDevice> withNumber(dev_t number) const override;
  [[nodiscard]] std::optional<std::string> attribute(const std::string& path,
                                                     const std::string& name) const override;
  [[nodiscard]] std::optional<std::vector<std::uint8_t>> reportDescriptor(
      const std::string& path) const override;
  [[nodiscard]] std::unique_ptr<DeviceWatch> watch() const override { return NodeWatch::begin(); }
};

}  // namespace router
