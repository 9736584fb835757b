// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/InventoryJson.h"

#include <nlohmann/json.hpp>

#include "tool/command/Command.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

/// Null if empty.
ordered_json textOrNull(const std::string& text) {
  return text.empty() ? ordered_json() : ordered_json(text);
}

ordered_json jsonOf(const PresenceStep& step) {
  return {{"name", step.name},
          {"question", step.question},
          {"answer", textOf(step.answer)},
          {"found", textOrNull(step.found)}};
}

ordered_json jsonOf(const router::DeviceDescription& device) {
  return {{"registryEntryID", device.registryEntryID},
          {"name", device.name},
          {"bus", device.bus},
          {"vendor", device.vendor},
          {"product", device.product},
          {"source", device.source}};
}

ordered_json jsonOf(const Check& check) {
  return {{"name", check.name},
          {"state", textOf(check.state)},
          {"found", check.found},
          {"remedy", textOrNull(check.remedy)},
          {"command", textOrNull(check.command)}};
}

}  // namespace

ordered_json jsonOf(const router::SessionStatus& session) {
  return {{"session", session.number},
          {"pid", session.pid},
          {"uid", session.uid},
          {"program", textOrNull(session.program)},
          {"unit", textOrNull(session.unit)},
          {"registryEntryID", session.device ? ordered_json(*session.device) : ordered_json()},
          {"deviceName", session.deviceName},
          {"exclusive", session.exclusive},
          {"delivered", session.delivered},
          {"lost", session.lost}};
}

ordered_json jsonOf(const RouterCopy& copy) {
  return {{"path", copy.path}, {"version", textOrNull(copy.version)}};
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

ordered_json jsonOf(const PresenceCheck& presence) {
  const auto& installed = presence.versions.installed;
  ordered_json steps = ordered_json::array();
  for (const PresenceStep& step : presence.steps) steps.push_back(jsonOf(step));
  return {{"installed", presence.installed},
          {"bundleCopy", jsonOf(presence.versions.bundle)},
          {"installedCopy", installed ? jsonOf(*installed) : ordered_json()},
          {"steps", steps}};
}

ordered_json jsonOf(const Endpoint& endpoint) {
  return {{"service", endpoint.service},
          {"path", endpoint.path},
          {"exists", endpoint.exists},
          {"owner", endpoint.exists ? ordered_json(endpoint.owner) : ordered_json()},
          {"problem", textOrNull(endpoint.problem)}};
}

ordered_json jsonOf(const DeviceList& devices) {
  ordered_json list = ordered_json::array();
  for (const auto& device : devices.devices) list.push_back(jsonOf(device));
  return {{"devices", list}, {"problems", devices.problems}};
}

ordered_json jsonOf(const Diagnosis& diagnosis) {
  ordered_json checks = ordered_json::array();
  for (const Check& check : diagnosis.checks) checks.push_back(jsonOf(check));
  return {{"inOrder", diagnosis.inOrder}, {"verdict", diagnosis.verdict}, {"checks", checks}};
}

std::string dumped(const ordered_json& document) {
  return document.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tool
