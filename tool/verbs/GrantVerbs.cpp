// SPDX-License-Identifier: Apache-2.0

// wlhid grant, grants and revoke: an administrator's lasting decisions that a user may have a
// sensitive device routed.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"
#include "platform/services/DeviceGrants.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/RootFiles.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/findings/InventoryJson.h"
#include "tool/routing/DeviceNames.h"
#include "tool/routing/SystemDevices.h"
#include "tool/terminal/Table.h"
#include "tool/terminal/UserNames.h"

namespace tool {

namespace {

using platform::ControlRequest;
using platform::DeviceGrant;
using platform::SystemRoot;
using Grants = std::vector<DeviceGrant>;

constexpr const char* kNothingToGrant =
    "Nothing has to be granted here: every device of your own system root may be routed by you "
    "anyway.\n";

Grants readGrants() {
  const auto root = platform::openRoot(SystemRoot::current());
  if (!root) return {};
  return platform::readDeviceGrants(root.get());
}

std::string kindText(const platform::DeviceIdentity& device) {
  return platform::stringWithFormat("%04x:%04x:%04x", device.bus & 0xffff, device.vendor & 0xffff,
                                    device.product & 0xffff);
}

std::string nameText(const DeviceGrant& grant) {
  return grant.name.empty() ? kindText(grant.device) : platform::printableLine(grant.name);
}

/// A device without a serial number cannot be told from others of its kind.
std::string deviceText(const DeviceGrant& grant) {
  const std::string name = "\"" + nameText(grant) + "\"";
  return grant.device.unique.empty()
             ? name + " and every other device " + kindText(grant.device)
             : name + " with the serial number " + platform::printableLine(grant.device.unique);
}

/// Whoever may not grant is told why by the daemon.
void change(ControlRequest::Operation operation, const DeviceGrant& grant,
            const std::string& failure) {
  ControlRequest request;
  request.operation = operation;
  request.grant = grant;
  const auto reply = platform::JobDaemon(SystemRoot::current()).ask(request, -1);
  if (!reply.succeeded()) throw Failure(failure + ": " + reply.message);
}

struct GrantOptions {
  std::string device;
  std::string user;
};

int grant(const GrantOptions& options) {
  if (!SystemRoot::current().isSystem()) {
    print(kNothingToGrant);
    return ExitDone;
  }
  const uid_t user = options.user.empty() ? ::getuid() : userNamed(options.user);
  const auto device = systemDevice(options.device).device;
  const DeviceGrant granted{
      user, {device.bus, device.vendor, device.product, device.unique}, device.name};
  change(ControlRequest::Operation::Grant, granted, "nothing was granted");
  print(oneLine("From now on, " + nameOfUser(user) + " may have " + deviceText(granted) +
                " routed without a question.") +
        "\n");
  return ExitDone;
}

std::string asJson(const Grants& grants) {
  auto list = nlohmann::ordered_json::array();
  for (const DeviceGrant& each : grants) {
    list.push_back(
        {{"user", each.user},
         {"bus", each.device.bus},
         {"vendor", each.device.vendor},
         {"product", each.device.product},
         {"unique", each.device.unique.empty() ? nlohmann::ordered_json()
                                               : nlohmann::ordered_json(each.device.unique)},
         {"name", each.name}});
  }
  return dumped(list);
}

std::string asTable(const Grants& grants) {
  Table table({"GRANT", "USER", "BUS:VENDOR:PRODUCT", "SERIAL NUMBER", "NAME"});
  for (std::size_t i = 0; i < grants.size(); ++i) {
    const DeviceGrant& each = grants[i];
    table.add({std::to_string(i + 1), nameOfUser(each.user), kindText(each.device),
               each.device.unique.empty() ? "any" : platform::printableLine(each.device.unique),
               platform::printableLine(each.name)});
  }
  return table.text();
}

int list(bool json) {
  if (!SystemRoot::current().isSystem()) {
    print(json ? asJson(Grants{}) : kNothingToGrant);
    return ExitDone;
  }
  const Grants grants = readGrants();
  if (json)
    print(asJson(grants));
  else
    print(grants.empty() ? "No grants.\n" : asTable(grants));
  return ExitDone;
}

int revoke(const std::string& text) {
  const auto number = parseNumber(text);
  if (!number || *number == 0)
    throw UsageFailure("\"" + text + "\" is not the number of a grant (wlhid grants lists them)");
  if (!SystemRoot::current().isSystem()) {
    print(kNothingToGrant);
    return ExitDone;
  }
  const Grants grants = readGrants();
  if (*number > grants.size())
    throw Failure("there is no grant " + text + " (wlhid grants lists them)");
  const DeviceGrant& revoked = grants[*number - 1];
  change(ControlRequest::Operation::Revoke, revoked, "nothing was revoked");
  print(oneLine("For " + nameOfUser(revoked.user) + ", \"" + nameText(revoked) +
                "\" is a device like any other again; what is routed now goes on until it "
                "ends.") +
        "\n");
  return ExitDone;
}

void addGrantVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<GrantOptions>();
  CLI::App* verb = app.add_subcommand(
      "grant", "Lets a user have a sensitive device routed without a question, from now on");
  verb->add_option("DEVICE", options->device, kDeviceHelp)->required();
  verb->add_option("--user", options->user, "The user (default: you)")->type_name("NAME");
  verb->footer(
      "An administrator has to agree. Meant for foot switches, dials and the like, which present "
      "themselves\n"
      "as keyboards; a keyboard that is granted can be read by each of that user's programs.\n"
      "\n"
      "Example:\n"
      "  wlhid grant \"Foot Switch\" --user alice");
  verb->callback([options, &chosen] { chosen = [options] { return grant(*options); }; });
}

void addListVerb(CLI::App& app, Action& chosen) {
  auto json = std::make_shared<bool>(false);
  CLI::App* verb = app.add_subcommand("grants", "Lists what administrators have granted");
  verb->add_flag("--json", *json, "Print a JSON array");
  verb->footer("Example:\n  wlhid grants --json");
  verb->callback([json, &chosen] { chosen = [json] { return list(*json); }; });
}

void addRevokeVerb(CLI::App& app, Action& chosen) {
  auto number = std::make_shared<std::string>();
  CLI::App* verb =
      app.add_subcommand("revoke", "Takes a grant back; an administrator has to agree");
  verb->add_option("N", *number, "The grant's number, as wlhid grants lists it")->required();
  verb->footer("Example:\n  wlhid revoke 1");
  verb->callback([number, &chosen] { chosen = [number] { return revoke(*number); }; });
}

}  // namespace

void addGrantVerbs(CLI::App& app, Action& chosen) {
  addGrantVerb(app, chosen);
  addListVerb(app, chosen);
  addRevokeVerb(app, chosen);
}

}  // namespace tool
