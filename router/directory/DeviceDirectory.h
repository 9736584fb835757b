// SPDX-License-Identifier: Apache-2.0

// Serves the device directory (router-client/WLHIDDeviceDirectoryProtocols.h).
#pragma once

#include <memory>

#include "router/directory/DeviceMonitor.h"
#include "router/requests/RequestService.h"

namespace router {

class DeviceDirectory final : public RequestService {
 public:
  DeviceDirectory(std::shared_ptr<platform::NSXPCListener> listener, const ServiceParts& parts);
  ~DeviceDirectory() override { monitor_->stop(); }
  DeviceDirectory(const DeviceDirectory&) = delete;
  DeviceDirectory& operator=(const DeviceDirectory&) = delete;

 private:
  std::shared_ptr<RequestSession> sessionFor(RequestPeer peer) override;
  void stopServing() override { monitor_->stop(); }

  const std::shared_ptr<DeviceMonitor> monitor_;
};

}  // namespace router
