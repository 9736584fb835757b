// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Diagnosis.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/findings/SystemChecks.h"

namespace tool {

namespace {

/// Below this the log loses lines, and an install fails.
constexpr std::uint64_t kMinimumFreeBytes = std::uint64_t{1} << 20;
constexpr std::uint64_t kMinimumFreeFiles = 16;

constexpr Words kReinstallProgram =
    "reinstall this program: the router that it carries is missing or damaged";

Check replaceable(std::string name, Words fault, std::string found,
                  const RouterVersions& versions) {
  return failed(std::move(name), fault, std::move(found), "replace it with this program's",
                commandLine(installArguments(versions)));
}

/// What is wrong with a copy that is not complete.
Words faultOf(CopyState state) {
  switch (state) {
    case CopyState::NoPath:
      return "its job names no executable";
    case CopyState::NoEmbeddedList:
      return "it has no embedded property list";
    case CopyState::BadList:
      return "its embedded property list is damaged";
    case CopyState::NoVersion:
      return "it has no version";
    case CopyState::Unreadable:
    case CopyState::Complete:
      break;
  }
  return "it cannot be read";
}

/// Only the owner of the root may connect to its endpoints.
Check rootCheck(const RootState& root) {
  const std::string name = "system root";
  if (!root.problem.empty())
    return failed(name, "it cannot be used", root.problem, "use this user's own root",
                  commandLineOnOwnRoot({"install"}));
  if (!root.exists) return passed(name, root.path + ": none yet; installing creates it");
  if (root.owner == ::geteuid()) return passed(name, root.path);
  return failed(name, "it belongs to another user",
                root.path + " belongs to user " + std::to_string(root.owner) + "; this user, " +
                    std::to_string(::geteuid()) + ", may not connect to anything on it",
                "install the router on this user's own root", commandLineOnOwnRoot({"install"}));
}

Check jobCheck(const Inventory& inventory) {
  const RouterVersions& versions = inventory.presence.versions;
  if (!versions.installed && inventory.system) return systemJobCheck(inventory);
  if (!versions.installed)
    return failed("job", "there is none", versions.jobProblem, "install the router",
                  commandLine({"install"}));
  if (versions.installed->state == CopyState::NoPath)
    return replaceable("job", faultOf(versions.installed->state), versions.installed->problem,
                       versions);
  return passed("job", "installed");
}

Check ownCopyCheck(const RouterCopy& copy) {
  if (copy.state != CopyState::Complete)
    return failed("own copy", faultOf(copy.state), copy.problem, kReinstallProgram);
  return passed("own copy", "version " + copy.version + ", " + copy.path);
}

Check installedCopyCheck(const RouterVersions& versions) {
  const std::string name = "installed copy";
  if (!versions.installed) return notAsked(name, "there is no job");
  const RouterCopy& copy = *versions.installed;
  if (copy.state != CopyState::Complete)
    return replaceable(name, faultOf(copy.state), copy.problem, versions);
  return passed(name, "version " + copy.version + ", " + copy.path);
}

Check versionsCheck(const PresenceCheck& presence) {
  const PresenceStep& step = presence.steps.back();
  if (step.answer == Answer::NotAsked)
    return notAsked("versions", "there are not two versions to compare");
  if (step.answer == Answer::No)
    return replaceable("versions", "they differ", step.found, presence.versions);
  return passed("versions", step.found);
}

/// If every step says yes but the framework says no, something has changed in between.
Check presenceCheck(const PresenceCheck& presence) {
  const bool allSayYes = presence.steps.back().answer == Answer::Yes;
  if (presence.installed) return passed("presence", "installed and current");
  return failed("presence", "not installed, or not current",
                allSayYes ? Words("check again: something has just changed") : Words("see above"),
                allSayYes ? commandLine({"doctor"}) : std::string());
}

Check routerCheck(const Inventory& inventory) {
  const std::string name = "running router";
  const bool isUnknown =
      inventory.system && (!inventory.router || !inventory.system->router.devices);
  if (isUnknown) return unaskedRouterCheck(*inventory.system);
  if (!inventory.router) return passed(name, "not running; it starts when an application connects");
  const router::RouterStatus& running = *inventory.router;
  const std::string found =
      "process " + std::to_string(running.pid) + ", version " + running.version;
  const auto& installed = inventory.presence.versions.installed;
  if (installed && installed->state == CopyState::Complete &&
      installed->version != running.version) {
    return failed(name, "it is not the version that is installed",
                  found + ", but version " + installed->version + " is installed",
                  "end it; the installed version starts when an application connects",
                  inventory.system ? "systemctl stop wlhid-router.service"
                                   : "kill " + std::to_string(running.pid));
  }
  return passed(name, found + ", " + std::to_string(running.sessions.size()) +
                          " sessions, reports lost: " + std::to_string(running.lost));
}

/// A running router says so itself; one that has only just been started may end like the last.
bool endedBadly(const platform::JobStatus& job,
                const std::optional<router::RouterStatus>& running) {
  const bool isUp = running && running->pid == job.processIdentifier;
  return !isUp && !job.lastEnd.empty() && job.lastEnd != "exited with status 0";
}

Check badEndCheck(const platform::JobStatus& job) {
  std::string found = "it " + job.lastEnd;
  if (job.heldBackMilliseconds != 0)
    found += ", and is held back for another " + std::to_string(job.heldBackMilliseconds) + " ms";
  return failed("job " + job.label, "its last run ended badly", found, "see why",
                commandLine({"log"}));
}

Check jobDaemonProblem(const JobDaemonState& daemon) {
  const std::string name = "job daemon";
  if (!daemon.asked)
    return failed(name, "it cannot be started", daemon.problem,
                  "reinstall this program: a part of it is missing");
  if (daemon.process <= 0)
    return failed(name, "it cannot be asked", daemon.problem, "try again", commandLine({"doctor"}));
  return failed(name, "it does not answer", daemon.problem,
                "end its process; another one starts when needed",
                "kill -KILL " + std::to_string(daemon.process));
}

/// The daemon, and jobs that ended badly.
void addJobChecks(std::vector<Check>& checks, const Inventory& inventory) {
  const JobDaemonState& daemon = inventory.jobDaemon;
  const std::string name = "job daemon";
  if (daemon.isForOthers) {
    checks.push_back(notAsked(name, "this user has no access to it"));
  } else if (!daemon.problem.empty()) {
    checks.push_back(jobDaemonProblem(daemon));
  } else if (!daemon.reply) {
    checks.push_back(passed(name, "not running; it starts when needed"));
  } else {
    checks.push_back(
        passed(name, "process " + std::to_string(daemon.reply->daemonProcessIdentifier)));
    for (const auto& job : daemon.reply->jobs) {
      if (endedBadly(job, inventory.router)) checks.push_back(badEndCheck(job));
    }
  }
}

bool isServed(const std::string& service, const JobDaemonState& daemon) {
  return daemon.reply && std::ranges::any_of(daemon.reply->jobs, [&](const auto& job) {
           return std::ranges::count(job.services, service) > 0;
         });
}

/// A daemon recreates its endpoints when it starts.
std::string endDaemon(const JobDaemonState& daemon) {
  return "kill " + std::to_string(daemon.reply->daemonProcessIdentifier);
}

Check endpointCheck(const Endpoint& endpoint, const JobDaemonState& daemon) {
  const std::string name = "endpoint";
  if (!endpoint.problem.empty() && !endpoint.exists)
    return failed(name, "it cannot be examined", endpoint.problem, "install the router again",
                  commandLine({"install"}));
  if (!endpoint.problem.empty()) {
    const std::string path = shellWord(endpoint.path);
    return failed(name, "something else is in its place", endpoint.problem,
                  "find out who created it, and move it away",
                  "mv -f " + path + " " + shellWord(endpoint.path + ".removed") +
                      (daemon.reply ? " && " + endDaemon(daemon) : std::string()));
  }
  if (!endpoint.exists && isServed(endpoint.service, daemon))
    return failed(name, "it is missing, although the job daemon listens on it",
                  endpoint.path + ": missing, although the job daemon listens on it",
                  "end the job daemon; it recreates the endpoint when it starts",
                  endDaemon(daemon));
  if (!endpoint.exists) return passed(name, "none; created when needed");
  if (!endpoint.mayConnect && endpoint.owner == ::geteuid())
    return failed(name, "nobody may connect to it", endpoint.path + ": nobody may connect to it",
                  "let its owner connect", "chmod u+rw " + shellWord(endpoint.path));
  return passed(name, endpoint.path);
}

void addEndpointChecks(std::vector<Check>& checks, const Inventory& inventory) {
  for (const Endpoint& endpoint : inventory.endpoints)
    checks.push_back(endpointCheck(endpoint, inventory.jobDaemon));
}

void addDeviceChecks(std::vector<Check>& checks, const DeviceList& list) {
  checks.push_back(passed("devices", std::to_string(list.devices.size()) + " can be routed"));
  for (const std::string& problem : list.problems)
    checks.push_back(failed("devices", "a configuration cannot be used", problem,
                            "repair the file, or remove the device as this list says",
                            commandLine({"devices"})));
}

Check logCheck(const LogState& log) {
  const std::string name = "log";
  if (!log.problem.empty() && log.isFile)
    return failed(name, "this user may not read it",
                  log.problem + "; it belongs to user " + std::to_string(log.owner),
                  "let its owner make it readable", "chmod a+r " + shellWord(log.path));
  if (!log.problem.empty() && log.owner == static_cast<uid_t>(-1))
    return failed(name, "it cannot be examined", log.problem, "let this user read it");
  if (!log.problem.empty())
    return failed(name, "something else is in its place", log.problem, "move it away",
                  "mv -f " + shellWord(log.path) + " " + shellWord(log.path + ".removed"));
  if (!log.exists) return passed(name, "none yet; a job's first line creates it");
  return passed(name, log.path + ", " + std::to_string(log.bytes) + " bytes");
}

Check diskCheck(const DiskState& disk) {
  const std::string name = "disk";
  if (!disk.problem.empty())
    return failed(name, "it cannot be examined", disk.problem, "check the file system");
  if (disk.freeBytes >= kMinimumFreeBytes && disk.freeFiles >= kMinimumFreeFiles)
    return passed(name, std::to_string(disk.freeBytes >> 20) + " MiB free");
  return failed(name, "it is full",
                "full: " + std::to_string(disk.freeBytes) + " bytes free on the system root's disk",
                "free some space: nothing can be installed, and the log loses lines");
}

/// The router that would be used, and whether it counts as installed.
std::vector<Check> presenceChecks(const Inventory& inventory) {
  const PresenceCheck& presence = inventory.presence;
  std::vector<Check> checks{jobCheck(inventory), ownCopyCheck(presence.versions.bundle),
                            installedCopyCheck(presence.versions), versionsCheck(presence)};
  // Only if the checks above do not explain the answer.
  const bool explained = std::ranges::count(checks, Check::State::Failed, &Check::state) != 0;
  if (presence.installed == explained) checks.push_back(presenceCheck(presence));
  return checks;
}

/// What only a user's root needs.
std::vector<Check> ownRootChecks(const Inventory& inventory) {
  std::vector<Check> checks;
  addJobChecks(checks, inventory);
  addEndpointChecks(checks, inventory);
  addDeviceChecks(checks, inventory.devices);
  checks.push_back(logCheck(inventory.log));
  return checks;
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
  std::vector<Check> checks =
      inventory.system ? systemPlaceChecks(inventory) : std::vector{rootCheck(inventory.rootState)};
  std::ranges::move(presenceChecks(inventory), std::back_inserter(checks));
  checks.push_back(routerCheck(inventory));
  std::ranges::move(inventory.system ? systemChecks(inventory) : ownRootChecks(inventory),
                    std::back_inserter(checks));
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
