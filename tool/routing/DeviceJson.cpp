// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/DeviceJson.h"

#include <nlohmann/json.hpp>
#include <string>

namespace tool {

namespace {

using nlohmann::ordered_json;

/// Null if empty.
ordered_json textOrNull(const std::string& text) {
  return text.empty() ? ordered_json() : ordered_json(text);
}

}  // namespace

ordered_json wholeJsonOf(const router::DeviceDescription& device) {
  return {{"registryEntryID", device.registryEntryID},
          {"name", device.name},
          {"bus", device.bus},
          {"vendor", device.vendor},
          {"product", device.product},
          {"source", device.source},
          {"physicalPath", textOrNull(device.physicalPath)},
          {"unique", textOrNull(device.unique)},
          {"interface", device.interface ? ordered_json(*device.interface) : ordered_json()}};
}

}  // namespace tool
