#include "tool/findings/InventoryJson.h"

#include <nlohmann/json.hpp>

#include "tool/command/Command.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

ordered_json jsonOf(const router::SessionStatus& session, const Redactor& redactor) {
  return {{"pid", session.pid},
          {"uid", session.uid},
          {"registryEntryID", session.device ? ordered_json(*session.device) : ordered_json()},
          {"deviceName", redactor.name(session.deviceName)},
          {"exclusive", session.exclusive},
          {"delivered", session.delivered},
          {"lost", session.lost}};
}

/// Null for nothing.
ordered_json textOrNull(const std::string& text) {
  return text.empty() ? ordered_json() : ordered_json(text);
}

ordered_json jsonOf(const PresenceStep& step, const Redactor& redactor) {
  return {{"name", step.name},
          {"question", step.question},
          {"answer", textOf(step.answer)},
          {"found", textOrNull(redactor.text(step.found))}};
}

/// "replay NAME.hid": what kind it is, and the rest by the redactor's rules.
std::string sourceOf(const router::DeviceDescription& device, const Redactor& redactor) {
  return redactor.text(device.source);
}

ordered_json jsonOf(const router::DeviceDescription& device, const Redactor& redactor) {
  return {{"registryEntryID", device.registryEntryID},
          {"name", redactor.name(device.name)},
          {"bus", device.bus},
          {"vendor", device.vendor},
          {"product", device.product},
          {"source", sourceOf(device, redactor)}};
}

ordered_json jsonOf(const Check& check, const Redactor& redactor) {
  return {{"name", redactor.text(check.name)},
          {"state", textOf(check.state)},
          {"found", redactor.text(check.found)},
          {"remedy", textOrNull(redactor.text(check.remedy))},
          {"command", textOrNull(redactor.text(check.command))}};
}

}  // namespace

ordered_json jsonOf(const RouterCopy& copy, const Redactor& redactor) {
  return {{"path", redactor.path(copy.path)},
          {"version", textOrNull(redactor.version(copy.version))}};
}

ordered_json jsonOf(const router::RouterStatus& router, const Redactor& redactor) {
  ordered_json sessions = ordered_json::array();
  for (const auto& session : router.sessions) sessions.push_back(jsonOf(session, redactor));
  return {{"pid", router.pid},
          {"version", redactor.version(router.version)},
          {"lost", router.lost},
          {"sessions", sessions}};
}

ordered_json jsonOf(const platform::ControlReply& reply, const Redactor& redactor) {
  ordered_json jobs = ordered_json::array();
  for (const auto& job : reply.jobs) {
    ordered_json services = ordered_json::array();
    for (const std::string& service : job.services) services.push_back(redactor.name(service));
    jobs.push_back(
        {{"label", redactor.name(job.label)},
         {"services", services},
         {"pid", job.processIdentifier == 0 ? ordered_json() : ordered_json(job.processIdentifier)},
         {"starts", job.starts},
         {"heldBackMilliseconds", job.heldBackMilliseconds},
         {"lastEnd", redactor.text(job.lastEnd)}});
  }
  return {{"pid", reply.daemonProcessIdentifier}, {"jobs", jobs}};
}

ordered_json jsonOf(const PresenceCheck& presence, const Redactor& redactor) {
  const auto& installed = presence.versions.installed;
  ordered_json steps = ordered_json::array();
  for (const PresenceStep& step : presence.steps) steps.push_back(jsonOf(step, redactor));
  return {{"installed", presence.installed},
          {"bundleCopy", jsonOf(presence.versions.bundle, redactor)},
          {"installedCopy", installed ? jsonOf(*installed, redactor) : ordered_json()},
          {"steps", steps}};
}

ordered_json jsonOf(const Endpoint& endpoint, const Redactor& redactor) {
  return {{"service", redactor.name(endpoint.service)},
          {"path", redactor.path(endpoint.path)},
          {"exists", endpoint.exists},
          {"owner", endpoint.exists ? ordered_json(endpoint.owner) : ordered_json()},
          {"problem", textOrNull(redactor.text(endpoint.problem))}};
}

ordered_json jsonOf(const DeviceList& devices, const Redactor& redactor) {
  ordered_json list = ordered_json::array();
  for (const auto& device : devices.devices) list.push_back(jsonOf(device, redactor));
  ordered_json problems = ordered_json::array();
  for (const std::string& problem : devices.problems) problems.push_back(redactor.text(problem));
  return {{"devices", list}, {"problems", problems}};
}

ordered_json jsonOf(const Diagnosis& diagnosis, const Redactor& redactor) {
  ordered_json checks = ordered_json::array();
  for (const Check& check : diagnosis.checks) checks.push_back(jsonOf(check, redactor));
  return {{"inOrder", diagnosis.inOrder}, {"verdict", diagnosis.verdict}, {"checks", checks}};
}

std::string dumped(const ordered_json& document) {
  return document.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tool
