// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/HidrawSystem.h"

#include "router/hidraw/KernelNodes.h"
#include "router/hidraw/UdevTree.h"

namespace router {

HidrawSystem HidrawSystem::real() {
  return {std::make_shared<const UdevTree>(), std::make_shared<const KernelNodes>()};
}

}  // namespace router
