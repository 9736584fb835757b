#include "tool/Diagnosis.h"

#include <algorithm>

#include "tool/Command.h"

namespace tool {

namespace {

/// Below this the log loses lines, and an install fails.
constexpr std::uint64_t kFewBytes = std::uint64_t{1} << 20;
constexpr std::uint64_t kFewFiles = 16;

constexpr std::string_view kInstall = "install the router: wlhid install";
constexpr std::string_view kReplace = "replace it with this program's: wlhid install";
constexpr std::string_view kReinstallProgram =
    "install this program again: the router that it carries is missing or damaged";

Check passed(std::string name, std::string found) {
  return {std::move(name), Check::State::Passed, std::move(found), {}};
}
Check failed(std::string name, std::string found, std::string_view remedy) {
  return {std::move(name), Check::State::Failed, std::move(found), std::string(remedy)};
}
Check notAsked(std::string name, std::string why) {
  return {std::move(name), Check::State::NotAsked, std::move(why), {}};
}

Check jobCheck(const RouterVersions& versions) {
  if (!versions.installed) return failed("job", versions.jobProblem, kInstall);
  if (versions.installed->state == CopyState::NoPath)
    return failed("job", versions.installed->problem, kReplace);
  return passed("job", "there is one");
}

Check ownCopyCheck(const RouterCopy& copy) {
  if (copy.state != CopyState::Complete) return failed("own copy", copy.problem, kReinstallProgram);
  return passed("own copy", "version " + copy.version + ", " + copy.path);
}

Check installedCopyCheck(const std::optional<RouterCopy>& copy) {
  const std::string name = "installed copy";
  if (!copy) return notAsked(name, "there is no job");
  if (copy->state != CopyState::Complete) return failed(name, copy->problem, kReplace);
  return passed(name, "version " + copy->version + ", " + copy->path);
}

Check versionsCheck(const PresenceCheck& presence) {
  const PresenceStep& step = presence.steps.back();
  if (step.answer == Answer::NotAsked) return notAsked("versions", "there are not two");
  if (step.answer == Answer::No) return failed("versions", step.found, kReplace);
  return passed("versions", step.found);
}

/// The steps say yes to everything, and the framework does not: something has changed in between.
Check presenceCheck(const PresenceCheck& presence) {
  const bool allSayYes = presence.steps.back().answer == Answer::Yes;
  if (presence.installed) return passed("presence", "installed and current");
  return failed("presence", "not installed, or not current",
                allSayYes ? "ask again: it has changed meanwhile" : "see above");
}

Check routerCheck(const Inventory& inventory) {
  const std::string name = "running router";
  if (!inventory.router) return passed(name, "none; it starts when an application connects");
  const router::RouterStatus& running = *inventory.router;
  const std::string found =
      "process " + std::to_string(running.pid) + ", version " + running.version;
  const auto& installed = inventory.presence.versions.installed;
  if (installed && installed->state == CopyState::Complete &&
      installed->version != running.version) {
    return failed(name, found + ", while version " + installed->version + " is installed",
                  "close the applications that use it: it ends when nobody is connected");
  }
  return passed(name, found + ", " + std::to_string(running.sessions.size()) +
                          " sessions, reports lost: " + std::to_string(running.lost));
}

/// Of jobs that are held back since they keep ending.
void addJobChecks(std::vector<Check>& checks, const JobDaemonState& daemon) {
  const std::string name = "job daemon";
  if (!daemon.problem.empty()) {
    checks.push_back(failed(name, daemon.problem,
                            "end its process if it hangs; if its program is missing, install this "
                            "program again"));
    return;
  }
  if (!daemon.reply) {
    checks.push_back(passed(name, "none runs; it starts when it is needed"));
    return;
  }
  checks.push_back(
      passed(name, "process " + std::to_string(daemon.reply->daemonProcessIdentifier)));
  for (const auto& job : daemon.reply->jobs) {
    if (job.heldBackMilliseconds == 0) continue;
    checks.push_back(failed("job " + job.label,
                            "held back for another " + std::to_string(job.heldBackMilliseconds) +
                                " ms, since it " + job.lastEnd,
                            "see why it ends: wlhid log"));
  }
}

void addEndpointChecks(std::vector<Check>& checks, const std::vector<Endpoint>& endpoints) {
  for (const Endpoint& endpoint : endpoints) {
    if (!endpoint.problem.empty()) {
      checks.push_back(failed("endpoint", endpoint.problem,
                              "find out who made it, remove it, then: wlhid install"));
    } else {
      checks.push_back(passed(
          "endpoint", endpoint.exists ? endpoint.path : "none; it is made when it is needed"));
    }
  }
}

void addDeviceChecks(std::vector<Check>& checks, const DeviceList& list) {
  checks.push_back(passed("devices", std::to_string(list.devices.size()) + " can be routed"));
  for (const std::string& problem : list.problems)
    checks.push_back(failed("devices", problem, "put the file right, or remove it"));
}

Check logCheck(const LogState& log) {
  if (!log.problem.empty())
    return failed("log", log.problem, "let this user read the file, or ask somebody who may");
  if (!log.exists) return passed("log", "none yet; it begins with the first line of a job");
  return passed("log", log.path + ", " + std::to_string(log.bytes) + " bytes");
}

Check diskCheck(const DiskState& disk) {
  const std::string name = "disk";
  if (!disk.problem.empty()) return failed(name, disk.problem, "see to the file system");
  if (disk.freeBytes >= kFewBytes && disk.freeFiles >= kFewFiles)
    return passed(name, std::to_string(disk.freeBytes >> 20) + " MiB free");
  return failed(name,
                "full: " + std::to_string(disk.freeBytes) + " bytes free on the system root's",
                "make room: nothing can be installed, and the log loses lines");
}

std::string verdictOf(const PresenceCheck& presence, const std::vector<Check>& checks) {
  const auto failures = std::ranges::count(checks, Check::State::Failed, &Check::state);
  if (failures == 0) return "The router is installed, current and in order.";
  std::string verdict = presence.installed ? "The router is installed and current, but "
                        : presence.versions.installed
                            ? "The router is not installed in this program's version: "
                            : "The router is not installed: ";
  return verdict + std::to_string(failures) + " of " + std::to_string(checks.size()) +
         (failures == 1 ? " checks fails." : " checks fail.");
}

std::string coloured(std::string_view text, std::string_view code, bool colours) {
  if (!colours) return std::string(text);
  return "\x1b[" + std::string(code) + "m" + std::string(text) + "\x1b[0m";
}

std::string mark(Check::State state, bool colours) {
  switch (state) {
    case Check::State::Passed:
      return coloured("ok  ", "32", colours);
    case Check::State::Failed:
      return coloured("FAIL", "1;31", colours);
    case Check::State::NotAsked:
      break;
  }
  return "-   ";
}

std::string lineOf(const Check& check, bool colours) {
  std::string name = oneLine(check.name);
  if (name.size() < 15) name.resize(15, ' ');
  std::string line = mark(check.state, colours) + "  " + name + " " + oneLine(check.found);
  if (!check.remedy.empty()) line += " -> " + oneLine(check.remedy);
  return line + "\n";
}

}  // namespace

Diagnosis diagnose(const Inventory& inventory) {
  const PresenceCheck& presence = inventory.presence;
  std::vector<Check> checks{jobCheck(presence.versions), ownCopyCheck(presence.versions.bundle),
                            installedCopyCheck(presence.versions.installed),
                            versionsCheck(presence)};
  // Only where the checks above do not explain the answer.
  const bool explained =
      std::ranges::any_of(checks, [](const Check& c) { return c.state == Check::State::Failed; });
  if (presence.installed == explained) checks.push_back(presenceCheck(presence));
  checks.push_back(routerCheck(inventory));
  addJobChecks(checks, inventory.jobDaemon);
  addEndpointChecks(checks, inventory.endpoints);
  addDeviceChecks(checks, inventory.devices);
  checks.push_back(logCheck(inventory.log));
  checks.push_back(diskCheck(inventory.disk));
  const bool inOrder = std::ranges::count(checks, Check::State::Failed, &Check::state) == 0;
  return {verdictOf(presence, checks), inOrder, std::move(checks)};
}

std::string_view textOf(Check::State state) {
  switch (state) {
    case Check::State::Passed:
      return "passed";
    case Check::State::Failed:
      return "failed";
    case Check::State::NotAsked:
      break;
  }
  return "not asked";
}

std::string linesOf(const Diagnosis& diagnosis, bool colours) {
  std::string text =
      coloured(diagnosis.verdict, diagnosis.inOrder ? "1;32" : "1;31", colours) + "\n";
  for (const Check& check : diagnosis.checks) text += lineOf(check, colours);
  return text;
}

}  // namespace tool
