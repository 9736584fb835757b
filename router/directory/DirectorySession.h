// SPDX-License-Identifier: Apache-2.0

// One application's connection to the device directory.
//
// What the application has been told is kept, and each change of the devices is told as the
// difference to that. So it does not matter what changed while its permissions were being found
// out: the next difference has it.
//
// Threading: requests arrive on the connection's queue, and everything else continues there.
// Errors: each request is answered once. An application that does not read what it is told is
//   disconnected.
// Order: the list, then the changes.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "router-client/WLHIDDeviceDirectoryProtocols.h"
#include "router/StartLine.h"
#include "router/control/DeviceInquiry.h"
#include "router/directory/DeviceFilter.h"
#include "router/directory/DeviceMonitor.h"
#include "router/requests/RequestSession.h"

namespace router {

class DirectorySession final : public RequestSession,
                               public WLHIDDeviceDirectoryProtocol,
                               public std::enable_shared_from_this<DirectorySession> {
 public:
  DirectorySession(RequestPeer peer, std::shared_ptr<DeviceMonitor> monitor);

  void watchDevicesMatching_excluding_reply(const std::shared_ptr<platform::NSArray>& matching,
                                            const std::shared_ptr<platform::NSArray>& excluding,
                                            WatchReply reply) override;
  void reportDescriptorOfDevice_reply(std::uint64_t registryEntryID,
                                      DescriptorReply reply) override;

  void end() override;

 private:
  using Devices = std::vector<ListedDevice>;

  void onQueue(std::function<void(DirectorySession&)> work);
  void refresh();
  [[nodiscard]] bool isTold(const ListedDevice& device) const;
  void ask(Devices devices);
  void take(const Devices& answered);
  void reply();
  void tell(const Devices& answered);
  [[nodiscard]] bool isReading();

  const std::shared_ptr<DeviceMonitor> monitor_;
  // On the connection's queue.
  std::shared_ptr<WLHIDDeviceDirectoryClientProtocol> client_;
  std::shared_ptr<void> subscription_;
  DeviceFilter filter_;
  WatchReply reply_;                            // of a watch that has not begun yet
  std::shared_ptr<const Devices> current_;      // that told_ is to become
  std::map<std::uint64_t, ListedDevice> told_;  // by registry entry ID
  std::shared_ptr<DeviceInquiry> inquiry_;
  std::uint64_t latestInquiry_ = 0;
  StartLine::Ticket timeIsUp_;
  bool isStale_ = false;  // something changed during the inquiry
};

}  // namespace router
