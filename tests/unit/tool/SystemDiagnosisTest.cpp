// SPDX-License-Identifier: Apache-2.0

// What is in order on the system's own root, where everything belongs to the superuser and polkit
// decides: each failed check's advice is for the user who reads it there.
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/foundation/NSString.h"
#include "tool/findings/Diagnosis.h"

namespace tool {
namespace {

using router::DeviceClass;
using router::DevicePermission;

RouterCopy copyOf(const std::string& path) {
  return {path, "1.0", CopyState::Complete, {}, platform::str("1.0")};
}

Endpoint openEndpoint(const std::string& service) {
  return {service, "/run/" + service + ".sock", true, 0, 0140666, true, {}};
}

router::ListedDevice device(DeviceClass deviceClass, DevicePermission permission) {
  router::ListedDevice listed;
  listed.deviceClass = deviceClass;
  listed.permission = permission;
  return listed;
}

platform::system::SessionState activeSession() {
  platform::system::SessionState state;
  state.session = "c1";
  state.user = 1000;
  state.isActive = true;
  return state;
}

SystemFindings findingsInOrder() {
  SystemFindings system;
  system.routerSockets = {
      {"wlhid-router.socket", UnitState::Present, openEndpoint("router")},
      {"wlhid-router-control.socket", UnitState::Present, openEndpoint("control")}};
  system.daemonSocket = {"wlhid-jobd.socket", UnitState::Present, openEndpoint("jobd")};
  system.router.asked = true;
  system.router.devices = {{device(DeviceClass::Ordinary, DevicePermission::Yes),
                            device(DeviceClass::Ordinary, DevicePermission::No),
                            device(DeviceClass::Sensitive, DevicePermission::Administrator),
                            device(DeviceClass::Sensitive, DevicePermission::Partly),
                            device(DeviceClass::Sensitive, DevicePermission::No)}};
  system.authorities.session = activeSession();
  return system;
}

/// The root of a machine where all is well, seen by an ordinary user.
Inventory wellKept() {
  RouterVersions versions{copyOf("/own"), copyOf("/usr/lib/wlhid/helpers/r"), {}, {"router"}};
  auto steps = presenceSteps(versions);
  router::RouterStatus running;
  running.pid = 77;
  running.version = "1.0";
  platform::ControlReply reply;
  reply.daemonProcessIdentifier = 55;
  return {platform::SystemRoot("/"),
          {"/", true, 0, {}},
          {true, std::move(versions), std::move(steps)},
          running,
          {true, reply, {}, false, -1},
          {openEndpoint("router"), openEndpoint("control")},
          {},
          {"/log", true, true, ::geteuid() + 1, 0, "/log: Permission denied"},
          {std::uint64_t{5} << 20, 100, {}},
          findingsInOrder()};
}

/// What is shown of the checks with that name, one line each.
std::string checkOf(const Inventory& inventory, std::string_view name) {
  std::string all;
  for (const Check& check : diagnose(inventory).checks) {
    if (check.name != name) continue;
    all += std::string(all.empty() ? "" : "\n") + std::string(textOf(check.state)) + ": " +
           check.found + (check.remedy.empty() ? "" : " -> " + check.remedy);
    EXPECT_TRUE(check.remedy.ends_with(check.command));
    EXPECT_EQ(check.remedy.empty(), check.state != Check::State::Failed);
  }
  return all.empty() ? "not there" : all;
}

/// A command as only the superuser may give it.
std::string asSuperuser(const std::string& command) {
  return (::geteuid() == 0 ? "" : "sudo ") + command;
}

const std::string kReinstall = "-> install the package wlhid-router again: " +
                               asSuperuser("apt-get install --reinstall wlhid-router");

TEST(SystemDiagnosis, OfAWellKeptSystemIsThatItIsInOrderForAnOrdinaryUser) {
  const Diagnosis diagnosis = diagnose(wellKept());
  EXPECT_TRUE(diagnosis.inOrder);
  EXPECT_EQ(linesOf(diagnosis, false),
            "The router is installed, current and in order.\n"
            "ok    system root     /, the system's own\n"
            "ok    job             installed\n"
            "ok    own copy        version 1.0, /own\n"
            "ok    installed copy  version 1.0, /usr/lib/wlhid/helpers/r\n"
            "ok    versions        both are 1.0\n"
            "ok    running router  process 77, version 1.0, 0 sessions, reports lost: 0\n"
            "ok    endpoint        /run/router.sock\n"
            "ok    endpoint        /run/control.sock\n"
            "ok    job daemon      process 55\n"
            "ok    polkit          answers\n"
            "ok    login session   c1, active\n"
            "ok    devices         5 connected\n"
            "ok    ordinary        you may route 1 of 2\n"
            "ok    sensitive       you may route 1 of 3, and 1 if an administrator agrees\n"
            "-     log             /log: Permission denied; it is for administrators, and for the "
            "group adm\n"
            "ok    disk            5 MiB free\n");
}

// ---- What is installed

TEST(SystemDiagnosis, ADirectoryThatOthersMayChangeIsGivenBack) {
  Inventory inventory = wellKept();
  inventory.system->placeProblems = {{"/var/a b", "/var/a b: has mode 0777", true},
                                     {"/usr/lib/x", "/usr/lib/x is a link", false}};
  EXPECT_EQ(checkOf(inventory, "system root"),
            "failed: /var/a b: has mode 0777 -> give it back to the superuser alone: " +
                asSuperuser("chown root '/var/a b'") + " && " +
                asSuperuser("chmod go-w '/var/a b'") +
                "\nfailed: /usr/lib/x is a link -> repair it, or the file system");
}

TEST(SystemDiagnosis, WithoutAJobTheDaemonInstallsOneOrElseThePackageDoes) {
  Inventory inventory = wellKept();
  RouterVersions versions{copyOf("/own"), std::nullopt, "there is no job file", {}};
  auto steps = presenceSteps(versions);
  inventory.presence = {false, std::move(versions), std::move(steps)};
  EXPECT_EQ(checkOf(inventory, "job"),
            "failed: there is no job file -> install the router: wlhid install");
  inventory.system->daemonSocket.endpoint.exists = false;
  EXPECT_EQ(checkOf(inventory, "job"),
            "failed: there is no job file -> install the package wlhid-router: " +
                asSuperuser("apt-get install --reinstall wlhid-router"));
}

// ---- The router and its sockets

TEST(SystemDiagnosis, ARunningRouterOfAnotherVersionIsSystemdsToStop) {
  Inventory inventory = wellKept();
  inventory.router->version = "0.9";
  EXPECT_EQ(checkOf(inventory, "running router"),
            "failed: process 77, version 0.9, but version 1.0 is installed -> end it; the "
            "installed version starts when an application connects: "
            "systemctl stop wlhid-router.service");
}

TEST(SystemDiagnosis, ARouterThatDoesNotAnswerFailsAndOneThatWasNotAskedDoesNot) {
  Inventory inventory = wellKept();
  inventory.router.reset();
  inventory.system->router = {true, {}, {}, "the router cannot be asked: interrupted"};
  EXPECT_EQ(checkOf(inventory, "running router"),
            "failed: the router cannot be asked: interrupted -> see what systemd says about it: "
            "systemctl status wlhid-router.service");
  EXPECT_EQ(checkOf(inventory, "ordinary"), "not there");
  inventory.system->router = {};
  EXPECT_EQ(checkOf(inventory, "running router"), "not asked: it cannot be asked");
}

TEST(SystemDiagnosis, ARouterThatAnswersOnlyHalfFails) {
  Inventory inventory = wellKept();
  inventory.system->router.devices.reset();
  inventory.system->router.problem = "the router cannot be asked: interrupted";
  EXPECT_EQ(checkOf(inventory, "running router"),
            "failed: the router cannot be asked: interrupted -> see what systemd says about it: "
            "systemctl status wlhid-router.service");
}

TEST(SystemDiagnosis, ASocketThatCannotBeConnectedToIsOpenedAnewBySystemd) {
  const std::string anew =
      " -> have systemd listen anew: systemctl stop wlhid-router.service && systemctl restart "
      "wlhid-router.socket wlhid-router-control.socket";
  const std::string other = "\npassed: /run/control.sock";
  Inventory inventory = wellKept();
  Endpoint& endpoint = inventory.system->routerSockets.front().endpoint;
  endpoint.mayConnect = false;
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "failed: /run/router.sock: this user may not connect to it" + anew + other);
  endpoint.problem = "/run/router.sock: belongs to user 5, not to root";
  EXPECT_EQ(checkOf(inventory, "endpoint"), "failed: " + endpoint.problem + anew + other);
  endpoint = {"router", "/run/router.sock", false, static_cast<uid_t>(-1), 0, false, {}};
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "failed: /run/router.sock: missing; systemd does not listen there" + anew + other);
}

TEST(SystemDiagnosis, ASocketWithoutAUnitIsThePackagesAndAMaskedOneTheAdministrators) {
  Inventory inventory = wellKept();
  SocketUnit& socket = inventory.system->routerSockets.back();
  socket.endpoint.exists = false;
  socket.state = UnitState::Missing;
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "passed: /run/router.sock\nfailed: /run/control.sock: missing; systemd does not listen "
            "there, and there is no unit wlhid-router-control.socket " +
                kReinstall);
  socket.state = UnitState::Masked;
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "passed: /run/router.sock\nfailed: an administrator has forbidden the router: "
            "wlhid-router-control.socket is masked -> to allow it again: systemctl unmask "
            "wlhid-router.socket wlhid-router-control.socket && systemctl start "
            "wlhid-router.socket wlhid-router-control.socket");
}

// ---- The job daemon

TEST(SystemDiagnosis, TheJobDaemonIsSystemdsToStartAndRoutingDoesNotNeedIt) {
  const std::string anew =
      ", and have systemd listen anew: systemctl stop wlhid-jobd.service && systemctl restart "
      "wlhid-jobd.socket";
  Inventory inventory = wellKept();
  inventory.jobDaemon = {true, {}, "the job daemon cannot be queried: x", false, 12};
  EXPECT_EQ(checkOf(inventory, "job daemon"),
            "failed: the job daemon cannot be queried: x -> end it" + anew);
  inventory.jobDaemon = {};
  EXPECT_EQ(checkOf(inventory, "job daemon"), "failed: nobody listens for it -> end it" + anew);
  inventory.system->daemonSocket.endpoint.exists = false;
  EXPECT_EQ(checkOf(inventory, "job daemon"),
            "failed: /run/jobd.sock: missing; systemd does not listen there -> have systemd listen "
            "anew: systemctl stop wlhid-jobd.service && systemctl restart wlhid-jobd.socket");
  inventory.system->daemonSocket.state = UnitState::Missing;
  EXPECT_EQ(checkOf(inventory, "job daemon"),
            "failed: /run/jobd.sock: missing; systemd does not listen there, and there is no unit "
            "wlhid-jobd.socket " +
                kReinstall);
  inventory.system->daemonSocket.state = UnitState::Masked;
  EXPECT_EQ(checkOf(inventory, "job daemon"),
            "not asked: an administrator has forbidden installing: wlhid-jobd.socket is masked");
}

// ---- Who decides

TEST(SystemDiagnosis, WithoutPolkitNothingIsAllowed) {
  Inventory inventory = wellKept();
  inventory.system->authorities.polkitProblem = "polkit has not answered in time";
  EXPECT_EQ(checkOf(inventory, "polkit"),
            "failed: polkit has not answered in time -> nothing is routed or installed without "
            "it; restart it: " +
                asSuperuser("systemctl restart polkit.service"));
}

TEST(SystemDiagnosis, WithoutABusNobodyDecides) {
  Inventory inventory = wellKept();
  inventory.system->authorities = {};
  inventory.system->authorities.busProblem = "/run/bus: No such file or directory";
  EXPECT_EQ(checkOf(inventory, "polkit"),
            "failed: there is no way to ask it: /run/bus: No such file or directory -> nothing is "
            "routed or installed without the system's message bus; start it: " +
                asSuperuser("systemctl start dbus.socket"));
  EXPECT_EQ(checkOf(inventory, "login session"),
            "not asked: unknown without the system's message bus");
}

TEST(SystemDiagnosis, InputGoesToTheSessionInFront) {
  Inventory inventory = wellKept();
  auto& session = inventory.system->authorities.session;
  session->isActive = false;
  EXPECT_EQ(checkOf(inventory, "login session"),
            "failed: c1: not active; input goes to the session in front alone -> switch to it: "
            "loginctl activate c1");
  session->isLocked = true;
  EXPECT_EQ(checkOf(inventory, "login session"),
            "failed: c1: locked; nothing is delivered to it meanwhile -> unlock the screen");
  session->hasEnded = true;
  EXPECT_EQ(checkOf(inventory, "login session"),
            "failed: c1: logind does not know it, so nothing is delivered to it -> log in again");
}

TEST(SystemDiagnosis, ASessionFromElsewhereOrNoneIsANote) {
  Inventory inventory = wellKept();
  inventory.system->authorities.session->isRemote = true;
  EXPECT_EQ(checkOf(inventory, "login session"),
            "not asked: c1, from elsewhere; what polkit allows to any session applies, by default "
            "nothing");
  inventory.system->authorities.session.reset();
  EXPECT_EQ(checkOf(inventory, "login session"),
            "not asked: none; what polkit allows to any process applies, by default nothing");
  inventory.system->authorities.sessionProblem = "logind has not answered in time";
  EXPECT_EQ(checkOf(inventory, "login session"),
            "failed: logind has not answered in time -> see whether logind runs: systemctl status "
            "systemd-logind.service");
}

// ---- Devices and the log

TEST(SystemDiagnosis, WithoutADeviceThereIsNothingToRoute) {
  Inventory inventory = wellKept();
  inventory.system->router.devices = std::vector<router::ListedDevice>();
  EXPECT_EQ(checkOf(inventory, "devices"), "failed: no HID device is connected -> connect one");
  EXPECT_EQ(checkOf(inventory, "ordinary"), "passed: you may route 0 of 0");
  inventory.system->router.devices.reset();
  inventory.devices.devices.resize(2);
  EXPECT_EQ(checkOf(inventory, "devices"), "passed: 2 connected") << "as far as the command sees";
}

TEST(SystemDiagnosis, OrdinaryDevicesThatAreAllRefusedFailAndSensitiveOnesDoNot) {
  Inventory inventory = wellKept();
  inventory.system->router.devices = {{device(DeviceClass::Ordinary, DevicePermission::No),
                                       device(DeviceClass::Sensitive, DevicePermission::No)}};
  EXPECT_EQ(checkOf(inventory, "ordinary"),
            "failed: you may route 0 of 1 -> this list says why: wlhid devices");
  EXPECT_EQ(checkOf(inventory, "sensitive"), "passed: you may route 0 of 1");
  inventory.system->router.devices->back().permission = DevicePermission::Unknown;
  inventory.system->router.devices->back().deviceClass.reset();
  EXPECT_EQ(checkOf(inventory, "sensitive"),
            "failed: you may route 0 of 1; nobody has decided about 1 -> this list says why: "
            "wlhid devices");
}

TEST(SystemDiagnosis, TheLogIsForAdministrators) {
  Inventory inventory = wellKept();
  inventory.log = {"/log", true, true, 0, 12, {}};
  EXPECT_EQ(checkOf(inventory, "log"), "passed: /log, 12 bytes");
  inventory.log.exists = false;
  EXPECT_EQ(checkOf(inventory, "log"), "passed: none yet; the router's first line creates it");
}

}  // namespace
}  // namespace tool
