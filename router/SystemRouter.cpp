// SPDX-License-Identifier: Apache-2.0

#include "router/SystemRouter.h"

#include <string>
#include <utility>

#include "platform/services/RootFiles.h"
#include "platform/system/Journal.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/RoutedDevices.h"
#include "router/SystemLog.h"
#include "router/policy/Grants.h"
#include "router/policy/RecentDevices.h"
#include "router/policy/SystemAuthority.h"
#include "router/policy/SystemServices.h"

namespace router {
namespace {

std::shared_ptr<RoutingAuthority> systemAuthority(
    const platform::SystemRoot& root, const std::shared_ptr<SystemLog>& log,
    const std::shared_ptr<const DeviceSources>& devices) {
  static auto* const services = new SystemServices;
  AuthoritySources sources;
  services->addTo(&sources);
  sources.device = [devices](const DeviceDescription& device) {
    return routableDevice(*devices, device);
  };
  sources.shownDevice = [recent = std::make_shared<RecentDevices>(devices)](
                            const DeviceDescription& device) { return recent->device(device); };
  sources.isGranted = [grants = std::make_shared<Grants>(root, log->sink())](
                          uid_t user, const platform::DeviceIdentity& device) {
    return grants->covers(user, device);
  };
  sources.record = [log](const RoutingRecord& record) { log->note(record); };
  return std::make_shared<SystemAuthority>(std::move(sources));
}

}  // namespace

RouterOptions systemRouterOptions(const platform::SystemRoot& root) {
  const auto log = std::make_shared<SystemLog>(
      platform::system::Journal(std::string(WLHIDEventRouterLabel)),
      platform::openPlace(root.directory(), root.places().log, /*create=*/false));
  RouterOptions options;
  options.log = log->sink();
  options.sources = std::make_shared<const DeviceSources>(deviceSources(root, options.limits));
  options.authority = systemAuthority(root, log, options.sources);
  return options;
}

}  // namespace router
