// SPDX-License-Identifier: Apache-2.0

// Serves the device directory (router-client/WLHIDDeviceDirectoryProtocols.h) on a listener of its
// own.
//
// Threading: any thread.
// Ownership: shares the parts of the router that it shows; holds each connection until it ends. A
//   connection keeps the router in use.
// Errors: reported to the caller.
// Order: after stop() no connection is accepted, and those that exist are closed.
#pragma once

#include <memory>
#include <mutex>
#include <set>

#include "platform/xpc/NSXPCListener.h"
#include "router/Quotas.h"
#include "router/control/RouterControl.h"
#include "router/directory/DeviceMonitor.h"

namespace router {

class DirectorySession;

class DeviceDirectory final : public platform::NSXPCListenerDelegate,
                              public std::enable_shared_from_this<DeviceDirectory> {
 public:
  DeviceDirectory(std::shared_ptr<platform::NSXPCListener> listener, ControlParts parts);
  ~DeviceDirectory() override { monitor_->stop(); }
  DeviceDirectory(const DeviceDirectory&) = delete;
  DeviceDirectory& operator=(const DeviceDirectory&) = delete;

  void resume();
  void stop();

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>& listener,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override;

 private:
  bool keep(const std::shared_ptr<DirectorySession>& session);
  void ended(const std::shared_ptr<DirectorySession>& session);

  const std::shared_ptr<platform::NSXPCListener> listener_;
  const std::shared_ptr<const ControlParts> parts_;
  const std::shared_ptr<TurnQuota> requests_;
  const std::shared_ptr<DeviceMonitor> monitor_;
  std::mutex mutex_;
  bool isStopped_ = false;
  std::set<std::shared_ptr<DirectorySession>> sessions_;
};

}  // namespace router
