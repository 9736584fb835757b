// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/SystemChecks.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "tool/command/Invocation.h"

namespace tool {

namespace {

using platform::system::SessionState;
using router::DeviceClass;
using router::DevicePermission;
using router::ListedDevice;

/// systemctl asks for the password itself; other programs are run by the superuser.
std::string asSuperuser(const std::string& command) {
  return (::geteuid() == 0 ? "" : "sudo ") + command;
}

std::string allNames(const std::vector<SocketUnit>& sockets) {
  std::string names;
  for (const SocketUnit& socket : sockets) names += (names.empty() ? "" : " ") + socket.name;
  return names;
}

std::string problemWith(const Endpoint& endpoint) {
  if (!endpoint.problem.empty()) return endpoint.problem;
  if (!endpoint.exists) return endpoint.path + ": missing; systemd does not listen there";
  return endpoint.path + ": this user may not connect to it";
}

Check reinstallPackage(const std::string& name, const std::string& found) {
  return failed(name, "its unit is missing", found, "install the package wlhid-router again",
                asSuperuser("apt-get install --reinstall wlhid-router"));
}

/// A service that runs keeps its socket from being opened anew.
std::string restart(const std::string& service, const std::string& sockets) {
  return "systemctl stop " + service + " && systemctl restart " + sockets;
}

Check routerSocketCheck(const SocketUnit& socket, const std::vector<SocketUnit>& all) {
  const std::string name = "endpoint";
  if (isOpen(socket.endpoint)) return passed(name, socket.endpoint.path);
  if (socket.state == UnitState::Missing)
    return reinstallPackage(name,
                            problemWith(socket.endpoint) + ", and there is no unit " + socket.name);
  if (socket.state == UnitState::Masked)
    return failed(name, "an administrator has forbidden the router",
                  "an administrator has forbidden the router: " + socket.name + " is masked",
                  "to allow it again",
                  "systemctl unmask " + allNames(all) + " && systemctl start " + allNames(all));
  return failed(name, "it is not open to this user", problemWith(socket.endpoint),
                "have systemd listen anew", restart("wlhid-router.service", allNames(all)));
}

/// Routing does not need the daemon, so an administrator may well have switched it off.
Check daemonSocketCheck(const SocketUnit& socket) {
  const std::string name = "job daemon";
  if (socket.state == UnitState::Masked)
    return notAsked(name,
                    "an administrator has forbidden installing: " + socket.name + " is masked");
  if (socket.state == UnitState::Missing)
    return reinstallPackage(name,
                            problemWith(socket.endpoint) + ", and there is no unit " + socket.name);
  return failed(name, "its endpoint is not open to this user", problemWith(socket.endpoint),
                "have systemd listen anew", restart("wlhid-jobd.service", socket.name));
}

Check daemonCheck(const Inventory& inventory) {
  const JobDaemonState& daemon = inventory.jobDaemon;
  const std::string name = "job daemon";
  if (!isOpen(inventory.system->daemonSocket.endpoint))
    return daemonSocketCheck(inventory.system->daemonSocket);
  if (daemon.reply)
    return passed(name, "process " + std::to_string(daemon.reply->daemonProcessIdentifier));
  return failed(name, "it does not answer",
                daemon.problem.empty() ? "nobody listens for it" : daemon.problem,
                "end it, and have systemd listen anew",
                restart("wlhid-jobd.service", inventory.system->daemonSocket.name));
}

Check polkitCheck(const AuthorityFindings& authorities) {
  if (!authorities.busProblem.empty())
    return failed("polkit", "there is no way to ask it",
                  "there is no way to ask it: " + authorities.busProblem,
                  "nothing is routed or installed without the system's message bus; start it",
                  asSuperuser("systemctl start dbus.socket"));
  if (authorities.polkitProblem.empty()) return passed("polkit", "answers");
  return failed("polkit", "it does not answer", authorities.polkitProblem,
                "nothing is routed or installed without it; restart it",
                asSuperuser("systemctl restart polkit.service"));
}

Check sessionCheckOf(const SessionState& state) {
  const std::string name = "login session";
  if (state.hasEnded)
    return failed(name, "it has ended, so nothing is delivered to it",
                  state.session + ": logind does not know it, so nothing is delivered to it",
                  "log in again");
  if (state.isLocked)
    return failed(name, "it is locked; nothing is delivered to it meanwhile",
                  state.session + ": locked; nothing is delivered to it meanwhile",
                  "unlock the screen");
  if (!state.isActive)
    return failed(name, "it is not active; input goes to the session in front alone",
                  state.session + ": not active; input goes to the session in front alone",
                  "switch to it", "loginctl activate " + shellWord(state.session));
  if (state.isRemote)
    return notAsked(name, state.session +
                              ", from elsewhere; what polkit allows to any session "
                              "applies, by default nothing");
  return passed(name, state.session + ", active");
}

Check sessionCheck(const AuthorityFindings& authorities) {
  const std::string name = "login session";
  if (!authorities.busProblem.empty())
    return notAsked(name, "unknown without the system's message bus");
  if (authorities.session) return sessionCheckOf(*authorities.session);
  if (!authorities.sessionProblem.empty())
    return failed(name, "it cannot be found out", authorities.sessionProblem,
                  "see whether logind runs", "systemctl status systemd-logind.service");
  return notAsked(name, "none; what polkit allows to any process applies, by default nothing");
}

Check connectedCheck(std::size_t count) {
  if (count == 0) return failed("devices", "no HID device is connected", "connect one");
  return passed("devices", std::to_string(count) + " connected");
}

struct Permissions {
  std::size_t all = 0;
  std::size_t yes = 0;  // some of their reports at least
  std::size_t administrator = 0;
  std::size_t unknown = 0;
};

/// A device without a class is treated as a sensitive one.
Permissions permissionsFor(DeviceClass deviceClass, const std::vector<ListedDevice>& devices) {
  Permissions counted;
  for (const ListedDevice& each : devices) {
    if (each.deviceClass.value_or(DeviceClass::Sensitive) != deviceClass) continue;
    ++counted.all;
    const auto may = each.permission;
    if (may == DevicePermission::Yes || may == DevicePermission::Partly) ++counted.yes;
    if (may == DevicePermission::Administrator) ++counted.administrator;
    if (may == DevicePermission::Unknown) ++counted.unknown;
  }
  return counted;
}

/// That a sensitive device may not be routed is as it should be.
Check classCheck(DeviceClass deviceClass, const std::vector<ListedDevice>& devices) {
  const bool isOrdinary = deviceClass == DeviceClass::Ordinary;
  const std::string name = isOrdinary ? "ordinary" : "sensitive";
  const Permissions may = permissionsFor(deviceClass, devices);
  std::string found = "you may route " + std::to_string(may.yes) + " of " + std::to_string(may.all);
  if (may.administrator != 0)
    found += ", and " + std::to_string(may.administrator) + " if an administrator agrees";
  if (may.unknown != 0) found += "; nobody has decided about " + std::to_string(may.unknown);
  const bool isRefused = isOrdinary && may.all != 0 && may.yes + may.administrator == 0;
  if (may.unknown == 0 && !isRefused) return passed(name, found);
  return failed(name, "not all of these devices may be routed", found, "this list says why",
                commandLine({"devices"}));
}

std::vector<Check> deviceChecks(const Inventory& inventory) {
  const auto& listed = inventory.system->router.devices;
  std::vector<Check> checks{
      connectedCheck(listed ? listed->size() : inventory.devices.devices.size())};
  if (!listed) return checks;
  checks.push_back(classCheck(DeviceClass::Ordinary, *listed));
  checks.push_back(classCheck(DeviceClass::Sensitive, *listed));
  return checks;
}

/// Who may read it is the administrator's decision, and routing does not depend on it.
Check logCheck(const LogState& log) {
  if (!log.exists) return passed("log", "none yet; the router's first line creates it");
  if (!log.problem.empty())
    return notAsked("log", log.problem + "; it is for administrators, and for the group adm");
  return passed("log", log.path + ", " + std::to_string(log.bytes) + " bytes");
}

}  // namespace

std::vector<Check> systemPlaceChecks(const Inventory& inventory) {
  const std::string name = "system root";
  std::vector<Check> checks;
  for (const PlaceProblem& place : inventory.system->placeProblems) {
    const std::string path = shellWord(place.path);
    checks.push_back(
        place.isOpenToOthers
            ? failed(name, "others may change one of its directories", place.problem,
                     "give it back to the superuser alone",
                     asSuperuser("chown root " + path) + " && " + asSuperuser("chmod go-w " + path))
            : failed(name, "one of its directories cannot be used", place.problem,
                     "repair it, or the file system"));
  }
  if (checks.empty())
    checks.push_back(passed(name, inventory.root.path().string() + ", the system's own"));
  return checks;
}

Check systemJobCheck(const Inventory& inventory) {
  const std::string& problem = inventory.presence.versions.jobProblem;
  if (isOpen(inventory.system->daemonSocket.endpoint))
    return failed("job", "there is none", problem, "install the router", commandLine({"install"}));
  return failed("job", "there is none", problem, "install the package wlhid-router",
                asSuperuser("apt-get install --reinstall wlhid-router"));
}

Check unaskedRouterCheck(const SystemFindings& system) {
  const std::string name = "running router";
  if (!system.router.asked) return notAsked(name, "it cannot be asked");
  return failed(name, "it does not answer", system.router.problem, "see what systemd says about it",
                "systemctl status wlhid-router.service");
}

std::vector<Check> systemChecks(const Inventory& inventory) {
  const SystemFindings& system = *inventory.system;
  std::vector<Check> checks;
  for (const SocketUnit& socket : system.routerSockets)
    checks.push_back(routerSocketCheck(socket, system.routerSockets));
  checks.push_back(daemonCheck(inventory));
  checks.push_back(polkitCheck(system.authorities));
  checks.push_back(sessionCheck(system.authorities));
  std::ranges::move(deviceChecks(inventory), std::back_inserter(checks));
  checks.push_back(logCheck(inventory.log));
  return checks;
}

}  // namespace tool
