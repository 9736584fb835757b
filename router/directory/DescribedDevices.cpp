// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DescribedDevices.h"

#include "router/ApplicationCollections.h"
#include "router/control/DeviceInquiry.h"

namespace router {
namespace {

struct Description {
  std::vector<ListedDevice> devices;
  bool isComplete = true;
};

Description describe(RoutedDevices& devices, const RoutingAuthority* authority) {
  Description description;
  std::vector<DeviceDescription> found;
  std::vector<std::vector<Usage>> collections;
  for (auto& [device, descriptor] : devices.listWithDescriptors()) {
    collections.push_back(descriptor ? applicationCollections(*descriptor) : std::vector<Usage>());
    description.isComplete = description.isComplete && descriptor.has_value();
    found.push_back(std::move(device));
  }
  description.devices = classified(authority, std::move(found));
  for (std::size_t i = 0; i < collections.size(); ++i)
    description.devices[i].collections = std::move(collections[i]);
  return description;
}

}  // namespace

std::vector<ListedDevice> describedDevices(RoutedDevices& devices,
                                           const RoutingAuthority* authority) {
  Description description = describe(devices, authority);
  // What has gone is not listed again, and what is listed again has come back or cannot be read.
  if (!description.isComplete) description = describe(devices, authority);
  return std::move(description.devices);
}

}  // namespace router
