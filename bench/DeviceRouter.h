// SPDX-License-Identifier: Apache-2.0

// The other process of a benchmark in which nothing is left out: the router itself, as its program
// runs it on a user's root, with a mouse that is a recording. It reads, decodes and sends each
// report, and the values in it, as it does those of any device.
//
// Threading: DeviceRouterProcess belongs to one thread.
// Ownership: its destructor ends the process and removes its root.
// Errors: std::runtime_error and router::DeviceError.
#pragma once

#include <cstddef>
#include <cstdint>

#include "bench/Router.h"

namespace bench {

/// Two bytes of each axis, the buttons, the wheel and two bytes of nothing.
inline constexpr std::size_t kMouseReportBytes = 8;

class DeviceRouterProcess : public RoleProcess {
 public:
  explicit DeviceRouterProcess(std::uint16_t perSecond);
  /// The mouse, which moves without end.
  [[nodiscard]] std::uint64_t registryEntryID() const { return registryEntryID_; }

 private:
  std::uint64_t registryEntryID_ = 0;
};

/// The router's own main, in the child process. Runs until it is killed.
int runDeviceRouterRole(const char* root);

}  // namespace bench
