// SPDX-License-Identifier: Apache-2.0

#include "router/Devices.h"

#include "router/ReplaySource.h"
#ifdef __linux__
#include "router/hidraw/HidrawSource.h"
#endif

namespace router {

std::vector<std::unique_ptr<DeviceSource>> deviceSources(const platform::SystemRoot& root,
                                                         const RouterLimits& limits) {
  std::vector<std::unique_ptr<DeviceSource>> sources;
  if (!root.isSystem()) sources.push_back(std::make_unique<ReplaySource>(root, limits));
#ifdef __linux__
  if (root.isSystem())
    sources.push_back(std::make_unique<HidrawSource>(HidrawSystem::real(), limits.udevTime));
#endif
  return sources;
}

std::vector<DeviceDescription> listDevices(const platform::SystemRoot& root,
                                           std::vector<std::string>* returnProblems) {
  std::vector<std::string> problems;
  std::vector<DeviceDescription> devices;
  for (const auto& source : deviceSources(root, {.udevTime = {}})) {
    auto found = source->list(&problems);
    devices.insert(devices.end(), std::make_move_iterator(found.begin()),
                   std::make_move_iterator(found.end()));
  }
  if (returnProblems != nullptr) *returnProblems = std::move(problems);
  return devices;
}

}  // namespace router
