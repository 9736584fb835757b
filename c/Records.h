// SPDX-License-Identifier: Apache-2.0

// The layer's devices and filters as the C interface has them.
//
// Threading: values.
// Ownership: a record keeps what its structure points to.
#pragma once

#include <vector>

#include "WLHIDAccess/InputDevices.h"
#include "c/wlhid.h"

namespace wlhid::abi {

/// Not movable: the structure points into it.
class DeviceRecord {
 public:
  explicit DeviceRecord(Device device);
  DeviceRecord(const DeviceRecord&) = delete;
  DeviceRecord& operator=(const DeviceRecord&) = delete;
  [[nodiscard]] const wlhid_device& record() const { return record_; }

 private:
  const Device device_;
  std::vector<wlhid_usage> collections_;
  wlhid_device record_{};
};

/// Null is a filter that admits everything.
[[nodiscard]] DeviceFilter filterOf(const wlhid_filter* filter);

}  // namespace wlhid::abi
