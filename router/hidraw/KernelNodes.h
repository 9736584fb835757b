// SPDX-License-Identifier: Apache-2.0

// The device nodes below /dev.
//
// /dev must belong to the superuser or this process's user and be writable by nobody else, and so
// must every directory below it on the way to a node.
//
// Threading, Ownership, Errors: as in DeviceNodes.h.
#pragma once

#include "router/hidraw/DeviceNodes.h"

namespace router {

class KernelNodes final : public DeviceNodes {
 public:
  [[nodiscard]] platform::FileDescriptor open(const std::string& node) const override;
  [[nodiscard]] bool mayRead(const std::string& node) const override;
  [[nodiscard]] std::optional<dev_t> numberOf(int descriptor) const override;
  [[nodiscard]] std::vector<std::uint8_t> reportDescriptor(int descriptor) const override;
  void grab(int descriptor) const override;
  [[nodiscard]] ssize_t read(int descriptor, std::span<std::uint8_t> buffer) const override;
};

}  // namespace router
