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
  Description description{classified(authority, devices.list())};
  for (ListedDevice& each : description.devices) {
    const auto descriptor = devices.reportDescriptorOf(each.device.registryEntryID);
    if (descriptor)
      each.collections = applicationCollections(*descriptor);
    else
      description.isComplete = false;
  }
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
