// SPDX-License-Identifier: Apache-2.0

// The router that systemd runs: how it fares, and its stop.
//
// Threading: construction, destruction, ask and stop from any thread but the bus's. What they are
//   given is called on the bus's thread, within seconds.
// Ownership: the bus outlives it. Its destruction forgets what is open.
// Errors: `stopped` is called with the cause, in words; `told` with a report that says nothing.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "jobd/RouterReport.h"
#include "platform/system/SystemBus.h"

namespace jobd {

class RouterUnit {
 public:
  /// With "" once the process that was running has ended, or if there was none.
  using Stopped = std::function<void(const std::string& problem)>;

  using Told = std::function<void(const RouterReport& router)>;

  /// `name`: of the service and its socket, without the suffix.
  RouterUnit(platform::system::SystemBus& bus, std::string name);
  RouterUnit(const RouterUnit&) = delete;
  RouterUnit& operator=(const RouterUnit&) = delete;
  ~RouterUnit();

  void stop(Stopped stopped);
  void ask(Told told);

 private:
  class Calls;

  platform::system::SystemBus& bus_;
  std::shared_ptr<Calls> calls_;
};

}  // namespace jobd
