// SPDX-License-Identifier: Apache-2.0

// Notices when udev has finished with a device or forgets one, by the records that it keeps, and
// when a hidraw node's permissions change, which is the last that the rules do.
//
// Udev's own announcements come by netlink, which reaches only the computer's network namespace;
// files do as well, and the router needs no network for them.
//
// Threading: one thread at a time.
// Ownership: owns one descriptor.
// Errors: a directory that cannot be watched is left out; without either there is no object.
// Order: what has changed by the time take() returns is there for whoever looks then.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/services/FileDescriptor.h"
#include "router/Devices.h"

namespace router {

class NodeWatch final : public DeviceWatch {
 public:
  /// Null if neither directory can be watched.
  static std::unique_ptr<NodeWatch> begin(const std::string& nodes = "/dev",
                                          const std::string& records = "/run/udev/data");

  [[nodiscard]] int descriptor() const override { return events_.get(); }
  bool take() override;

 private:
  explicit NodeWatch(platform::FileDescriptor events) : events_(std::move(events)) {}

  const platform::FileDescriptor events_;
};

}  // namespace router
