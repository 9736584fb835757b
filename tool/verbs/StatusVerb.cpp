// SPDX-License-Identifier: Apache-2.0

// wlhid status: is the router installed, current and running, what does it route, what was lost.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/command/Numbers.h"
#include "tool/findings/Inventory.h"
#include "tool/findings/InventoryJson.h"
#include "tool/findings/RouterService.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

struct Status {
  platform::SystemRoot root;
  bool installed = false;
  RouterVersions versions;
  std::optional<router::RouterStatus> router;  // of a running router
  std::optional<platform::ControlReply> jobs;  // of a running daemon
};

/// On the system's own root the router tells each user what is that user's to know.
std::optional<router::RouterStatus> askRouter(const platform::SystemRoot& root, bool isInstalled) {
  if (!root.isSystem()) return runningRouter(root);
  if (!isInstalled) return std::nullopt;
  try {
    return RouterService().status();
  } catch (const Failure& failure) {
    complain(failure.what());
    return std::nullopt;
  }
}

Status readStatus() {
  const platform::SystemRoot root = platform::SystemRoot::current();
  Status status{root, WLHIDEventRouterClient::isInstalled(), readRouterVersions(), {}, {}};
  status.router = askRouter(root, status.versions.installed.has_value());
  // A daemon that does not answer is worth a complaint, but the rest of the status is still valid.
  JobDaemonState daemon = askJobDaemon(root);
  if (daemon.asked && !daemon.problem.empty()) complain(daemon.problem);
  status.jobs = std::move(daemon.reply);
  return status;
}

std::string asJson(const Status& status) {
  const auto& installed = status.versions.installed;
  return dumped({
      {"root", status.root.path().string()},
      {"installed", status.installed},
      {"bundleCopy", jsonOf(status.versions.bundle)},
      {"installedCopy", installed ? jsonOf(*installed) : ordered_json()},
      {"router", status.router ? jsonOf(*status.router) : ordered_json()},
      {"jobDaemon", status.jobs ? jsonOf(*status.jobs) : ordered_json()},
  });
}

std::string versionText(const RouterCopy& copy) {
  return copy.version.empty() ? "no version" : "version " + copy.version;
}

std::string installationText(const Status& status) {
  const auto& installed = status.versions.installed;
  std::error_code unknown;
  if (!installed && std::filesystem::exists(status.root.jobFile(WLHIDEventRouterLabel), unknown)) {
    return "not installed, because the job is unusable (replace it with: " +
           commandLine({"install"}) + "): " + status.versions.jobProblem;
  }
  if (!installed) return "not installed (install it with: " + commandLine({"install"}) + ")";
  if (status.installed) return "installed, " + versionText(*installed);
  return "not current: " + versionText(*installed) +
         " is installed (replace it with: " + commandLine(installArguments(status.versions)) + ")";
}

std::string line(std::string_view name, const std::string& value) {
  std::string text(name);
  text.resize(14, ' ');
  return text + oneLine(value) + "\n";
}

std::string plural(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string sessionText(const router::SessionStatus& session) {
  const std::string device =
      session.device ? hexadecimal(*session.device) + " " + session.deviceName : "no device";
  return device + (session.exclusive ? ", exclusively" : "") + ": " +
         plural(session.delivered, "report") + " delivered, " + std::to_string(session.lost) +
         " lost, for process " + std::to_string(session.pid);
}

std::string routerLines(const router::RouterStatus& router) {
  std::string text =
      line("Running", "process " + std::to_string(router.pid) + ", version " + router.version +
                          ", " + plural(router.sessions.size(), "session") + ", " +
                          plural(router.lost, "report") + " lost");
  for (const auto& session : router.sessions) text += line("", sessionText(session));
  return text;
}

/// Jobs that the daemon holds back because they keep failing.
std::string troubleLines(const platform::ControlReply& reply) {
  std::string text;
  for (const auto& job : reply.jobs) {
    if (job.heldBackMilliseconds == 0) continue;
    text += line("Held back", "for another " + std::to_string(job.heldBackMilliseconds) +
                                  " ms, because the router " + job.lastEnd);
  }
  return text;
}

std::string asText(const Status& status) {
  std::string text = line("Router", installationText(status));
  text +=
      line("Own copy", versionText(status.versions.bundle) + ", " + status.versions.bundle.path);
  if (status.versions.installed) {
    text += line("Installed",
                 versionText(*status.versions.installed) + ", " + status.versions.installed->path);
  }
  text += line("System root", status.root.path().string());
  text += status.router ? routerLines(*status.router)
                        : line("Running", status.versions.installed
                                              ? "no; it starts when an application connects"
                                              : "no");
  if (status.jobs) text += troubleLines(*status.jobs);
  return text;
}

int showStatus(bool json) {
  const Status status = readStatus();
  print(json ? asJson(status) : asText(status));
  return status.installed ? ExitDone : ExitNotSo;
}

}  // namespace

void addStatusVerb(CLI::App& app, Action& chosen) {
  auto json = std::make_shared<bool>(false);
  CLI::App* verb = app.add_subcommand(
      "status", "Says whether the router is installed and running, and what it has lost");
  verb->add_flag("--json", *json, "Print one JSON object");
  verb->footer(
      "Exit status: 0 installed and current, 1 not.\n"
      "\n"
      "Example:\n"
      "  wlhid status --json");
  verb->callback([json, &chosen] { chosen = [json] { return showStatus(*json); }; });
}

}  // namespace tool
