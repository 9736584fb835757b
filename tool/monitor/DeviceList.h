// SPDX-License-Identifier: Apache-2.0

// The devices that are connected, as the list shows them.
//
// Threading: one thread at a time.
// Order: by their IDs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "WLHIDAccess/InputDevices.h"
#include "tool/monitor/Shown.h"

namespace tool::monitor {

class DeviceList {
 public:
  void set(const std::vector<wlhid::Device>& devices);
  /// Arrived, or changed.
  void put(const wlhid::Device& device);
  void remove(std::uint64_t id);

  /// Null if it is not connected.
  [[nodiscard]] const wlhid::Device* find(std::uint64_t id) const;
  /// Changes the list that is shown. The cursor stays on its device; where that has gone, on the
  /// next one. It begins on the open device, whose state is `openState`.
  void showIn(Shown& shown, const std::string& openState) const;

 private:
  std::map<std::uint64_t, wlhid::Device> devices_;
};

}  // namespace tool::monitor
