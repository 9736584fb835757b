// SPDX-License-Identifier: Apache-2.0

// Stops the router that systemd runs.
//
// Threading: construction, destruction and stop from any thread but the bus's. `stopped` is called
//   on the bus's thread.
// Ownership: the bus outlives it. Its destruction forgets what is open.
// Errors: as the cause, in words, that `stopped` is called with.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/system/SystemBus.h"

namespace jobd {

class RouterUnit {
 public:
  /// With "" once the process that was running has ended, or if there was none.
  using Stopped = std::function<void(const std::string& problem)>;

  /// `name`: of the unit.
  RouterUnit(platform::system::SystemBus& bus, std::string name);
  RouterUnit(const RouterUnit&) = delete;
  RouterUnit& operator=(const RouterUnit&) = delete;
  ~RouterUnit();

  void stop(Stopped stopped);

 private:
  class Calls;

  platform::system::SystemBus& bus_;
  std::shared_ptr<Calls> calls_;
};

}  // namespace jobd
