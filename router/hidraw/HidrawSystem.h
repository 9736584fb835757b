// SPDX-License-Identifier: Apache-2.0

// All that the hidraw source needs of the computer; tests put their own in its place.
#pragma once

#include <memory>

#include "router/hidraw/DeviceNodes.h"
#include "router/hidraw/DeviceTree.h"

namespace router {

struct HidrawSystem {
  std::shared_ptr<const DeviceTree> tree;
  std::shared_ptr<const DeviceNodes> nodes;

  /// libudev and the kernel.
  [[nodiscard]] static HidrawSystem real();
};

}  // namespace router
