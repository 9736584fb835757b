// wlhid status: is the router installed and current, does it run, what does it route, what was
// lost.
#include <nlohmann/json.hpp>
#include <optional>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/SystemRoot.h"
#include "router/RouterStatus.h"
#include "tool/Command.h"
#include "tool/Numbers.h"
#include "tool/RouterVersions.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

struct Status {
  platform::SystemRoot root;
  bool installed = false;
  RouterVersions versions;
  std::optional<router::RouterStatus> router;  // of a router that runs
  std::optional<platform::ControlReply> jobs;  // of a daemon that runs
};

/// Nothing also where the daemon is there and does not answer: the status is a question, and no
/// answer is one.
std::optional<platform::ControlReply> askJobDaemon(const platform::SystemRoot& root) {
  try {
    return platform::JobDaemon(root).status();
  } catch (const platform::ServiceError& error) {
    complain(std::string("the job daemon cannot be asked: ") + error.what());
    return std::nullopt;
  }
}

Status readStatus() {
  Status status{platform::SystemRoot::current(),
                WLHIDEventRouterClient::isInstalled(),
                readRouterVersions(),
                {},
                {}};
  status.router = router::readRouterStatus(status.root);
  if (status.router && !router::isRunning(*status.router)) status.router.reset();
  status.jobs = askJobDaemon(status.root);
  return status;
}

ordered_json jsonOf(const RouterCopy& copy) {
  return {{"path", copy.path},
          {"version", copy.version.empty() ? ordered_json() : ordered_json(copy.version)}};
}

ordered_json jsonOf(const router::SessionStatus& session) {
  return {{"pid", session.pid},
          {"uid", session.uid},
          {"registryEntryID", session.device ? ordered_json(*session.device) : ordered_json()},
          {"deviceName", session.deviceName},
          {"exclusive", session.exclusive},
          {"delivered", session.delivered},
          {"lost", session.lost}};
}

ordered_json jsonOf(const router::RouterStatus& router) {
  ordered_json sessions = ordered_json::array();
  for (const auto& session : router.sessions) sessions.push_back(jsonOf(session));
  return {{"pid", router.pid},
          {"version", router.version},
          {"lost", router.lost},
          {"sessions", sessions}};
}

ordered_json jsonOf(const platform::ControlReply& reply) {
  ordered_json jobs = ordered_json::array();
  for (const auto& job : reply.jobs) {
    jobs.push_back(
        {{"label", job.label},
         {"services", job.services},
         {"pid", job.processIdentifier == 0 ? ordered_json() : ordered_json(job.processIdentifier)},
         {"starts", job.starts},
         {"heldBackMilliseconds", job.heldBackMilliseconds},
         {"lastEnd", job.lastEnd}});
  }
  return {{"pid", reply.daemonProcessIdentifier}, {"jobs", jobs}};
}

std::string asJson(const Status& status) {
  const ordered_json document = {
      {"root", status.root.path().string()},
      {"installed", status.installed},
      {"bundleCopy", jsonOf(status.versions.bundle)},
      {"installedCopy",
       status.versions.installed ? jsonOf(*status.versions.installed) : ordered_json()},
      {"router", status.router ? jsonOf(*status.router) : ordered_json()},
      {"jobDaemon", status.jobs ? jsonOf(*status.jobs) : ordered_json()},
  };
  return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string versionText(const RouterCopy& copy) {
  return copy.version.empty() ? "no version" : "version " + copy.version;
}

std::string installationText(const Status& status) {
  const auto& installed = status.versions.installed;
  if (!installed) return "not installed (install it with: wlhid install)";
  if (status.installed) return "installed, " + versionText(*installed);
  return "not current: installed is " + versionText(*installed) +
         " (replace it with: wlhid install)";
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
  return device + (session.exclusive ? ", taken alone" : "") + ": " +
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

/// What the daemon knows of jobs that do badly; nothing of those that do well.
std::string troubleLines(const platform::ControlReply& reply) {
  std::string text;
  for (const auto& job : reply.jobs) {
    if (job.heldBackMilliseconds == 0) continue;
    text += line("Held back", "for another " + std::to_string(job.heldBackMilliseconds) +
                                  " ms, since the router " + job.lastEnd);
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
      "status", "Says whether the router is installed, runs, and what it has lost");
  verb->add_flag("--json", *json, "Print one JSON object");
  verb->footer(
      "Exit status: 0 installed and current, 1 not.\n"
      "\n"
      "Example:\n"
      "  wlhid status --json");
  verb->callback([json, &chosen] { chosen = [json] { return showStatus(*json); }; });
}

}  // namespace tool
