// SPDX-License-Identifier: Apache-2.0

#include "jobd/RouterProperties.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <csignal>
#include <string_view>

#include "jobd/LogTable.h"

namespace jobd {
namespace {

using platform::LogLine;

/// Where the property of that name belongs, with its type; null for one that does not count.
struct Place {
  const char* type = nullptr;
  void* value = nullptr;
};

Place placeOf(std::string_view name, UnitProperties& into) {
  if (name == "StateChangeTimestampMonotonic") return {"t", &into.StateChangeTimestampMonotonic};
  if (name == "RestartUSec") return {"t", &into.RestartUSec};
  if (name == "ExecMainStartTimestampMonotonic")
    return {"t", &into.ExecMainStartTimestampMonotonic};
  if (name == "MainPID") return {"u", &into.MainPID};
  if (name == "NRestarts") return {"u", &into.NRestarts};
  if (name == "ExecMainCode") return {"i", &into.ExecMainCode};
  if (name == "ExecMainStatus") return {"i", &into.ExecMainStatus};
  return {};
}

std::string* textOf(std::string_view name, UnitProperties& into) {
  if (name == "ActiveState") return &into.ActiveState;
  if (name == "SubState") return &into.SubState;
  if (name == "Result") return &into.Result;
  return nullptr;
}

/// Reads the value that follows its name.
bool readValue(sd_bus_message* message, std::string_view name, UnitProperties& into) {
  if (std::string* const text = textOf(name, into)) {
    const char* value = nullptr;
    if (sd_bus_message_read(message, "v", "s", &value) < 0) return false;
    *text = value;
    return true;
  }
  const Place place = placeOf(name, into);
  if (place.value == nullptr) return sd_bus_message_skip(message, "v") >= 0;
  return sd_bus_message_read(message, "v", place.type, place.value) >= 0;
}

bool readEntry(sd_bus_message* message, UnitProperties& into) {
  const char* name = nullptr;
  return sd_bus_message_read(message, "s", &name) > 0 && readValue(message, name, into) &&
         sd_bus_message_exit_container(message) >= 0;
}

/// Empty while a process runs, and for an end that systemd does not count as a failure although a
/// signal caused it: somebody stopped the unit.
std::string endOf(const UnitProperties& service) {
  const bool isExit = service.ExecMainCode == CLD_EXITED;
  if (service.ExecMainCode == 0 || (!isExit && service.Result == "success")) return {};
  return isExit ? LogLine::of<row::exited>(service.ExecMainStatus).text()
                : LogLine::of<row::killed>(service.ExecMainStatus).text();
}

std::int64_t heldBackFor(const UnitProperties& service, std::chrono::microseconds now) {
  if (service.SubState != "auto-restart") return 0;
  const auto until =
      static_cast<std::int64_t>(service.StateChangeTimestampMonotonic + service.RestartUSec);
  return std::max<std::int64_t>((until - now.count()) / 1000, 1);
}

/// Why no connection will start the router.
std::string problemOf(const std::string& unit, const UnitProperties& service,
                      const UnitProperties& socket) {
  if (socket.ActiveState == "failed" || socket.ActiveState == "inactive")
    return unit + ".socket is " + socket.ActiveState + " (" + socket.Result +
           "), so nothing starts the router: start it with systemctl restart " + unit + ".socket";
  if (service.Result == "start-limit-hit")
    return "the router was started too often, and systemd starts it no more: allow it with "
           "systemctl reset-failed " +
           unit + ".service";
  return {};
}

}  // namespace

std::optional<UnitProperties> readUnitProperties(sd_bus_message* message) {
  UnitProperties properties;
  if (sd_bus_message_enter_container(message, 'a', "{sv}") < 0) return std::nullopt;
  int entered = 0;
  while ((entered = sd_bus_message_enter_container(message, 'e', "sv")) > 0)
    if (!readEntry(message, properties)) return std::nullopt;
  if (entered < 0) return std::nullopt;
  return properties;
}

RouterReport routerReport(const std::string& unit, const UnitProperties& service,
                          const UnitProperties& socket, std::chrono::microseconds now) {
  RouterReport report;
  report.status.processIdentifier = service.MainPID;
  const bool wasStarted = service.ExecMainStartTimestampMonotonic != 0;
  report.status.starts = std::int64_t{service.NRestarts} + (wasStarted ? 1 : 0);
  report.status.heldBackMilliseconds = heldBackFor(service, now);
  report.status.lastEnd = endOf(service);
  report.problem = problemOf(unit, service, socket);
  return report;
}

}  // namespace jobd
