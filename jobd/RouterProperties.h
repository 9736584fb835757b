// SPDX-License-Identifier: Apache-2.0

// What systemd's properties of the router's units say about the router.
//
// systemd counts restarts, not starts, and forgets the end of a process when the next one begins.
//
// Threading: the thread of the bus's connection for readUnitProperties, any for the rest.
// Errors: an answer that cannot be read has no properties.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "jobd/RouterReport.h"
#include "platform/system/BusTypes.h"

namespace jobd {

/// Those that count here, under systemd's names. A service has all of them, a socket the strings.
struct UnitProperties {
  std::string ActiveState;
  std::string SubState;
  std::string Result;
  std::uint64_t StateChangeTimestampMonotonic = 0;  ///< microseconds, like all times here
  std::uint64_t RestartUSec = 0;
  std::uint64_t ExecMainStartTimestampMonotonic = 0;  ///< 0: never started
  std::uint32_t MainPID = 0;
  std::uint32_t NRestarts = 0;
  std::int32_t ExecMainCode = 0;  ///< as in siginfo_t; 0 while it runs
  std::int32_t ExecMainStatus = 0;
};

/// From an answer to GetAll.
[[nodiscard]] std::optional<UnitProperties> readUnitProperties(sd_bus_message* message);

/// `unit`: the name of both units without its suffix. `now`: since the same time as systemd's
/// times.
[[nodiscard]] RouterReport routerReport(const std::string& unit, const UnitProperties& service,
                                        const UnitProperties& socket,
                                        std::chrono::microseconds now);

}  // namespace jobd
