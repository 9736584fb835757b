// SPDX-License-Identifier: Apache-2.0

// wlhid sessions: who routes what; ends a session.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/foundation/PrintableText.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/findings/Inventory.h"
#include "tool/findings/InventoryJson.h"
#include "tool/findings/RouterService.h"
#include "tool/terminal/Table.h"
#include "tool/terminal/UserNames.h"

namespace tool {

namespace {

using Sessions = std::vector<router::SessionStatus>;

/// On the system's own root the router says what this user may know; on another one its status is
/// in a file, and asking would start it.
Sessions readSessions() {
  const auto root = platform::SystemRoot::current();
  if (root.isSystem()) return RouterService().status().sessions;
  const auto status = runningRouter(root);
  return status ? status->sessions : Sessions();
}

std::string asJson(const Sessions& sessions) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& session : sessions) list.push_back(jsonOf(session));
  return dumped(list);
}

std::string routeText(const router::SessionStatus& session) {
  if (!session.device) return "nothing";
  return hexadecimal(*session.device) + " " + platform::printableLine(session.deviceName) +
         (session.exclusive ? ", exclusively" : "");
}

std::string asTable(const Sessions& sessions) {
  Table table({"SESSION", "USER", "PROCESS", "PROGRAM", "ROUTES"});
  for (const auto& session : sessions) {
    table.add({std::to_string(session.number), nameOfUser(session.uid), std::to_string(session.pid),
               session.program.empty() ? "?" : platform::printableLine(session.program),
               routeText(session)});
  }
  return table.text();
}

int list(bool json) {
  const Sessions sessions = readSessions();
  if (json)
    print(asJson(sessions));
  else
    print(sessions.empty() ? "No sessions.\n" : asTable(sessions));
  return ExitDone;
}

int endSession(const std::string& text) {
  const auto number = parseNumber(text);
  if (!number) throw UsageFailure("\"" + text + "\" is not a session's number");
  RouterService().endSession(*number);
  print("Session " + std::to_string(*number) + " has been ended.\n");
  return ExitDone;
}

void addEndVerb(CLI::App& sessions, Action& chosen) {
  auto number = std::make_shared<std::string>();
  CLI::App* verb = sessions.add_subcommand(
      "end", "Ends a session; for another user's, an administrator has to agree");
  verb->add_option("N", *number, "The session's number")->required();
  verb->footer(
      "The program that had the device is told that the session was ended, and does not get it "
      "back by\n"
      "itself.\n"
      "\n"
      "Example:\n"
      "  wlhid sessions end 12");
  verb->callback([number, &chosen] { chosen = [number] { return endSession(*number); }; });
}

}  // namespace

void addSessionsVerb(CLI::App& app, Action& chosen) {
  auto json = std::make_shared<bool>(false);
  CLI::App* verb =
      app.add_subcommand("sessions", "Lists who has which device routed; ends a session");
  verb->add_flag("--json", *json, "Print a JSON array");
  verb->require_subcommand(0, 1);
  verb->fallthrough();
  addEndVerb(*verb, chosen);
  verb->footer(
      "Without a subcommand: lists this user's sessions, or, for the superuser, everybody's.\n"
      "\n"
      "Example:\n"
      "  wlhid sessions");
  verb->preparse_callback(
      [json, &chosen](std::size_t) { chosen = [json] { return list(*json); }; });
}

}  // namespace tool
