// SPDX-License-Identifier: Apache-2.0

#include "tool/report/ShownFindings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <nlohmann/json.hpp>

namespace tool {

namespace {

using nlohmann::ordered_json;

constexpr std::uint32_t kLargestModelNumber = 0xFFFF;

/// The names of the checks in Diagnosis.cpp and SystemChecks.cpp; that of a job is followed by its
/// label.
constexpr std::array<std::string_view, 16> kChecks{
    "system root",    "job",           "own copy", "installed copy", "versions", "presence",
    "running router", "job daemon",    "endpoint", "devices",        "log",      "disk",
    "polkit",         "login session", "ordinary", "sensitive"};

std::string_view shownState(CopyState state) {
  switch (state) {
    case CopyState::NoPath:
      return "no path";
    case CopyState::Unreadable:
      return "unreadable";
    case CopyState::NoEmbeddedList:
      return "no embedded property list";
    case CopyState::BadList:
      return "damaged property list";
    case CopyState::NoVersion:
      return "no version";
    case CopyState::Complete:
      break;
  }
  return "complete";
}

ordered_json shownCopy(const RouterCopy& copy) {
  return {{"state", shownState(copy.state)}, {"version", shownVersionOrNull(copy.version)}};
}

/// Null if there is none.
ordered_json shownOwner(bool exists, uid_t owner) {
  if (!exists) return {};
  if (owner == 0) return "root";
  return owner == ::geteuid() ? "this user" : "another user";
}

ordered_json shownModelNumber(std::uint32_t number) {
  return number <= kLargestModelNumber ? ordered_json(number) : ordered_json(kPrivate);
}

ordered_json shownSession(const router::SessionStatus& session, DeviceOrder& devices) {
  return {{"pid", shownCode(session.pid)},
          {"device", session.device ? ordered_json(devices.nameOf(*session.device)) : nullptr},
          {"exclusive", session.exclusive},
          {"delivered", shownNumber(session.delivered)},
          {"lost", shownNumber(session.lost)}};
}

ordered_json shownRouter(const router::RouterStatus& router, DeviceOrder& devices) {
  ordered_json sessions = ordered_json::array();
  for (const auto& session : router.sessions) sessions.push_back(shownSession(session, devices));
  return {{"pid", shownCode(router.pid)},
          {"version", shownVersionOrNull(router.version)},
          {"lost", shownNumber(router.lost)},
          {"sessions", sessions}};
}

ordered_json shownJob(const platform::JobStatus& job) {
  ordered_json services = ordered_json::array();
  for (const std::string& service : job.services) services.push_back(shownLabel(service));
  return {{"label", shownLabel(job.label)},
          {"services", services},
          {"pid", job.processIdentifier == 0 ? nullptr : shownCode(job.processIdentifier)},
          {"starts", shownCode(job.starts)},
          {"heldBackMilliseconds", shownCode(job.heldBackMilliseconds)},
          {"lastEnd", job.lastEnd.empty() ? ordered_json() : ordered_json(shownEnd(job.lastEnd))}};
}

ordered_json shownJobDaemon(const JobDaemonState& daemon) {
  ordered_json jobs = ordered_json::array();
  ordered_json process;
  if (daemon.reply) {
    process = shownCode(daemon.reply->daemonProcessIdentifier);
    for (const auto& job : daemon.reply->jobs) jobs.push_back(shownJob(job));
  }
  return {{"asked", daemon.asked},
          {"answered", daemon.reply.has_value()},
          {"isForOthers", daemon.isForOthers},
          {"hasProblem", !daemon.problem.empty()},
          {"pid", process},
          {"jobs", jobs}};
}

ordered_json shownEndpoint(const Endpoint& endpoint) {
  return {{"service", shownLabel(endpoint.service)},
          {"exists", endpoint.exists},
          {"owner", shownOwner(endpoint.exists, endpoint.owner)},
          {"isSocket", endpoint.exists && S_ISSOCK(endpoint.mode)},
          {"mayConnect", endpoint.mayConnect},
          {"hasProblem", !endpoint.problem.empty()}};
}

std::string_view shownUnit(UnitState state) {
  if (state == UnitState::Missing) return "missing";
  return state == UnitState::Masked ? "masked" : "present";
}

ordered_json shownSocketUnit(const SocketUnit& unit) {
  ordered_json shown = shownEndpoint(unit.endpoint);
  shown["unit"] = shownUnit(unit.state);
  return shown;
}

/// Null if the process belongs to no session, or its session is not known.
ordered_json shownLoginSession(const std::optional<platform::system::SessionState>& session) {
  if (!session) return {};
  return {{"active", session->isActive},
          {"locked", session->isLocked},
          {"remote", session->isRemote},
          {"ended", session->hasEnded}};
}

/// Null if the router has not answered: what it says of each device.
ordered_json shownPermissions(const std::optional<std::vector<router::ListedDevice>>& devices) {
  if (!devices) return {};
  ordered_json shown = ordered_json::array();
  for (const auto& each : *devices) {
    shown.push_back({{"class", !each.deviceClass                                    ? "unknown"
                               : *each.deviceClass == router::DeviceClass::Ordinary ? "ordinary"
                                                                                    : "sensitive"},
                     {"permission", router::nameOf(each.permission)}});
  }
  return shown;
}

/// Null on a user's root.
ordered_json shownSystem(const std::optional<SystemFindings>& system) {
  if (!system) return {};
  ordered_json sockets = ordered_json::array();
  for (const SocketUnit& unit : system->routerSockets) sockets.push_back(shownSocketUnit(unit));
  sockets.push_back(shownSocketUnit(system->daemonSocket));
  const AuthorityFindings& authorities = system->authorities;
  return {{"placesWithProblems", system->placeProblems.size()},
          {"sockets", sockets},
          {"routerAsked", system->router.asked},
          {"routerHasProblem", !system->router.problem.empty()},
          {"busHasProblem", !authorities.busProblem.empty()},
          {"polkitHasProblem", !authorities.polkitProblem.empty()},
          {"loginSession", shownLoginSession(authorities.session)},
          {"devices", shownPermissions(system->router.devices)}};
}

}  // namespace

ordered_json shownNumber(std::uint64_t number) {
  const bool fits = number <= std::uint64_t{std::numeric_limits<std::int64_t>::max()};
  return fits && isShownNumber(static_cast<std::int64_t>(number)) ? ordered_json(number)
                                                                  : ordered_json(kPrivate);
}

ordered_json shownCode(std::optional<std::int64_t> code) {
  if (!code) return {};
  return isShownCode(*code) ? ordered_json(*code) : ordered_json(kPrivate);
}

ordered_json shownVersionOrNull(const std::string& version) {
  return version.empty() ? ordered_json() : ordered_json(shownVersion(version));
}

std::string shownName(const Check& check) {
  constexpr std::string_view kJob = "job ";
  const std::string_view name = check.name;
  if (std::ranges::find(kChecks, name) != kChecks.end()) return check.name;
  if (!name.starts_with(kJob)) return std::string(kPrivate);
  return std::string(kJob) + shownLabel(name.substr(kJob.size()));
}

std::string shownDiagnosis(const Diagnosis& diagnosis) {
  std::string text = diagnosis.verdict + "\n";
  for (const Check& check : diagnosis.checks) {
    text += std::string(textOf(check.state)) + ": " + shownName(check);
    if (check.state == Check::State::Failed)
      text.append(": ").append(check.fault).append(" -> ").append(check.advice);
    text += "\n";
  }
  return text;
}

ordered_json shownPresence(const PresenceCheck& presence) {
  const auto& installed = presence.versions.installed;
  ordered_json steps = ordered_json::array();
  for (const PresenceStep& step : presence.steps) {
    steps.push_back(
        {{"name", step.name}, {"question", step.question}, {"answer", textOf(step.answer)}});
  }
  return {{"installed", presence.installed},
          {"bundleCopy", shownCopy(presence.versions.bundle)},
          {"installedCopy", installed ? shownCopy(*installed) : ordered_json()},
          {"steps", steps}};
}

ordered_json shownJobs(const Inventory& inventory, DeviceOrder& devices) {
  ordered_json endpoints = ordered_json::array();
  for (const Endpoint& endpoint : inventory.endpoints) endpoints.push_back(shownEndpoint(endpoint));
  const auto& router = inventory.router;
  return {{"jobDaemon", shownJobDaemon(inventory.jobDaemon)},
          {"endpoints", endpoints},
          {"router", router ? shownRouter(*router, devices) : ordered_json()}};
}

ordered_json shownDevices(const DeviceList& list, DeviceOrder& devices) {
  ordered_json shown = ordered_json::array();
  for (const auto& device : list.devices) {
    shown.push_back({{"device", devices.nameOf(device.registryEntryID)},
                     {"bus", shownModelNumber(device.bus)},
                     {"vendor", shownModelNumber(device.vendor)},
                     {"product", shownModelNumber(device.product)},
                     {"isRecording", device.source.starts_with("replay ")}});
  }
  return {{"devices", shown}, {"configurationsWithProblems", list.problems.size()}};
}

ordered_json shownRoot(const Inventory& inventory) {
  const RootState& root = inventory.rootState;
  const LogState& log = inventory.log;
  return {{"isSystem", inventory.root.isSystem()},
          {"exists", root.exists},
          {"owner", shownOwner(root.exists, root.owner)},
          {"hasProblem", !root.problem.empty()},
          {"log",
           {{"exists", log.exists},
            {"isFile", log.isFile},
            {"owner", shownOwner(log.owner != static_cast<uid_t>(-1), log.owner)},
            {"bytes", shownNumber(log.bytes)},
            {"hasProblem", !log.problem.empty()}}},
          {"disk",
           {{"freeMiB", shownNumber(inventory.disk.freeBytes >> 20)},
            {"hasProblem", !inventory.disk.problem.empty()}}},
          {"system", shownSystem(inventory.system)}};
}

ordered_json shownTrial(const TrialResult& trial, DeviceOrder& devices) {
  ordered_json statuses = ordered_json::array();
  for (const auto status : trial.statuses) statuses.push_back(static_cast<std::uint64_t>(status));
  ordered_json codes = ordered_json::array();
  for (const std::int64_t code : trial.errorCodes) codes.push_back(shownCode(code));
  return {{"device", devices.nameOf(trial.registryEntryID)},
          {"outcome", trial.outcome},
          {"statuses", statuses},
          {"errorCodes", codes},
          {"deliveries", shownNumber(trial.deliveries)}};
}

}  // namespace tool
