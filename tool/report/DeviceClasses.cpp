// SPDX-License-Identifier: Apache-2.0

#include "tool/report/DeviceClasses.h"

#include <exception>
#include <memory>

namespace tool {

namespace {

using Classes = std::map<std::uint64_t, router::DeviceClass>;

void addRecorded(Classes& classes, const router::DeviceSource& source,
                 std::uint64_t registryEntryID) try {
  if (const auto device = source.open(registryEntryID)) {
    router::DeviceFacts facts;
    facts.reportDescriptor = device->reportDescriptor();
    classes[registryEntryID] = router::classify(facts).deviceClass;
  }
} catch (const std::exception&) {
  // A recording that cannot be read has no class; the listing says what is wrong with it.
}

}  // namespace

std::map<std::uint64_t, router::DeviceClass> classesOf(const Inventory& inventory) {
  Classes classes;
  if (inventory.system) {
    for (const auto& listed :
         inventory.system->router.devices.value_or(std::vector<router::ListedDevice>())) {
      if (listed.deviceClass) classes[listed.device.registryEntryID] = *listed.deviceClass;
    }
    return classes;
  }
  std::vector<std::string> problems;  // the inventory has them
  for (const auto& source : router::deviceSources(inventory.root)) {
    for (const auto& device : source->list(&problems))
      addRecorded(classes, *source, device.registryEntryID);
  }
  return classes;
}

}  // namespace tool
