// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Diagnosis.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "platform/foundation/NSString.h"
#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

RouterCopy copyOf(const std::string& path, const std::string& version) {
  return {path, version, CopyState::Complete, {}, platform::str(version)};
}

/// The presence check for an installed router.
PresenceCheck presenceOf(RouterVersions versions, bool installed) {
  auto steps = presenceSteps(versions);
  return {installed, std::move(versions), std::move(steps)};
}

/// A root in order, on which nothing runs.
Inventory wellKept() {
  RouterVersions versions{copyOf("/own", "1.0"), copyOf("/installed", "1.0"), {}, {"service"}};
  return {platform::SystemRoot("/a root"),
          {"/a root", true, ::geteuid(), {}},
          presenceOf(std::move(versions), true),
          {},
          {},
          {{"service", "/a root/s.sock", true, ::geteuid(), 0, true, {}}},
          {},
          {"/a root/log", true, true, ::geteuid(), 12, {}},
          {std::uint64_t{5} << 20, 100, {}}};
}

/// "found", after "FAIL: " or "-: " unless it passed; then " -> remedy" and " [command]".
std::string shown(const Check& check) {
  const char* const state = check.state == Check::State::Passed   ? ""
                            : check.state == Check::State::Failed ? "FAIL: "
                                                                  : "-: ";
  return state + check.found + (check.remedy.empty() ? "" : " -> " + check.remedy) +
         (check.command.empty() ? "" : " [" + check.command + "]");
}

/// All checks of that name, joined.
std::string checkOf(const Inventory& inventory, std::string_view name) {
  std::string all;
  for (const Check& check : diagnose(inventory).checks) {
    if (check.name == name) all += (all.empty() ? "" : "; ") + shown(check);
  }
  return all.empty() ? "not there" : all;
}

TEST(Diagnosis, OfAWellKeptRootIsThatItIsInOrder) {
  const Diagnosis diagnosis = diagnose(wellKept());
  EXPECT_TRUE(diagnosis.inOrder);
  EXPECT_EQ(linesOf(diagnosis, false),
            "The router is installed, current and in order.\n"
            "ok    system root     /a root\n"
            "ok    job             installed\n"
            "ok    own copy        version 1.0, /own\n"
            "ok    installed copy  version 1.0, /installed\n"
            "ok    versions        both are 1.0\n"
            "ok    running router  not running; it starts when an application connects\n"
            "ok    job daemon      not running; it starts when needed\n"
            "ok    endpoint        /a root/s.sock\n"
            "ok    devices         0 can be routed\n"
            "ok    log             /a root/log, 12 bytes\n"
            "ok    disk            5 MiB free\n");
}

TEST(Diagnosis, LinesHaveColoursWhereTheyAreWanted) {
  Diagnosis diagnosis{"Well.", true, {{"a", Check::State::Passed, "b", {}, {}}}};
  EXPECT_EQ(linesOf(diagnosis, true),
            "\x1b[1;32mWell.\x1b[0m\n\x1b[32mok  \x1b[0m  a               b\n");
  diagnosis = {
      "Ill.",
      false,
      {{"a", Check::State::Failed, "b", "c", {}}, {"d", Check::State::NotAsked, "e", {}, {}}}};
  EXPECT_EQ(linesOf(diagnosis, true),
            "\x1b[1;31mIll.\x1b[0m\n\x1b[1;31mFAIL\x1b[0m  a               b -> c\n"
            "-     d               e\n");
}

TEST(Diagnosis, ALongNameIsNotCutAndNothingInALineIsObeyed) {
  const std::string name = "job com.quillmar.hideventrouter";
  const Diagnosis diagnosis{"", false, {{name, Check::State::Failed, "\x1b", "\n", {}}}};
  EXPECT_EQ(linesOf(diagnosis, false), "\nFAIL  " + name + " \\x1b -> \\x0a\n");
  const Diagnosis fifteen{"", false, {{"123456789012345", Check::State::Passed, "f", {}, {}}}};
  EXPECT_EQ(linesOf(fifteen, false), "\nok    123456789012345 f\n");
}

TEST(Diagnosis, StatesHaveNames) {
  EXPECT_EQ(textOf(Check::State::Passed), "passed");
  EXPECT_EQ(textOf(Check::State::Failed), "failed");
  EXPECT_EQ(textOf(Check::State::NotAsked), "not asked");
}

// ---- The root

TEST(Diagnosis, ARootIsThisUsersOwnOrNoneYet) {
  Inventory inventory = wellKept();
  inventory.rootState = {"/a root", false, static_cast<uid_t>(-1), {}};
  EXPECT_EQ(checkOf(inventory, "system root"), "/a root: none yet; installing creates it");
  inventory.rootState = {"/a root", true, ::geteuid() + 1, {}};
  EXPECT_EQ(checkOf(inventory, "system root"),
            "FAIL: /a root belongs to user " + std::to_string(::geteuid() + 1) + "; this user, " +
                std::to_string(::geteuid()) +
                ", may not connect to anything on it -> install the router on this user's own "
                "root: env -u WLHID_ROOT wlhid install [env -u WLHID_ROOT wlhid install]");
  inventory.rootState.problem = "/a root: Not a directory";
  EXPECT_EQ(checkOf(inventory, "system root"),
            "FAIL: /a root: Not a directory -> use this user's own root: "
            "env -u WLHID_ROOT wlhid install [env -u WLHID_ROOT wlhid install]");
}

TEST(Diagnosis, ARootOfAnotherDoesNotExplainWhyTheRouterIsNotInstalled) {
  Inventory inventory = wellKept();
  inventory.rootState.owner = ::geteuid() + 1;
  inventory.presence.installed = false;
  EXPECT_EQ(checkOf(inventory, "presence"),
            "FAIL: not installed, or not current -> check again: something has just changed: "
            "wlhid doctor [wlhid doctor]");
}

// ---- The copies

TEST(Diagnosis, WithoutAJobOneIsInstalled) {
  Inventory inventory = wellKept();
  RouterVersions versions{copyOf("/own", "1.0"), std::nullopt, "there is no job file", {}};
  inventory.presence = presenceOf(versions, false);
  EXPECT_EQ(checkOf(inventory, "job"),
            "FAIL: there is no job file -> install the router: wlhid install [wlhid install]");
  EXPECT_EQ(checkOf(inventory, "installed copy"), "-: there is no job");
  EXPECT_EQ(checkOf(inventory, "versions"), "-: there are not two versions to compare");
  EXPECT_EQ(checkOf(inventory, "presence"), "not there") << "the job explains it";
  EXPECT_EQ(diagnose(inventory).verdict, "The router is not installed: 1 of 11 checks fails.");
  EXPECT_FALSE(diagnose(inventory).inOrder);
}

TEST(Diagnosis, AJobThatNamesNoProgramIsReplaced) {
  Inventory inventory = wellKept();
  RouterCopy nowhere;
  nowhere.problem = "the job names no executable";
  inventory.presence = presenceOf({copyOf("/own", "1.0"), nowhere, {}, {}}, false);
  const std::string replace = " -> replace it with this program's: wlhid install [wlhid install]";
  EXPECT_EQ(checkOf(inventory, "job"), "FAIL: the job names no executable" + replace);
  EXPECT_EQ(checkOf(inventory, "installed copy"), "FAIL: the job names no executable" + replace);
  EXPECT_EQ(diagnose(inventory).verdict,
            "The router is not installed in this program's version: 2 of 11 checks fail.");
}

TEST(Diagnosis, ADamagedCopyIsReplacedAndTheOwnOneComesWithTheProgram) {
  Inventory inventory = wellKept();
  const RouterCopy damaged{"/c", {}, CopyState::NoVersion, "/c: no version", nullptr};
  inventory.presence = presenceOf({copyOf("/own", "1.0"), damaged, {}, {}}, false);
  EXPECT_EQ(
      checkOf(inventory, "installed copy"),
      "FAIL: /c: no version -> replace it with this program's: wlhid install [wlhid install]");
  EXPECT_EQ(checkOf(inventory, "own copy"), "version 1.0, /own");
  inventory.presence = presenceOf({damaged, copyOf("/installed", "1.0"), {}, {}}, false);
  EXPECT_EQ(checkOf(inventory, "own copy"),
            "FAIL: /c: no version -> reinstall this program: the router that it carries is "
            "missing or damaged");
}

TEST(Diagnosis, AnotherVersionIsReplacedANewerOneByForce) {
  Inventory inventory = wellKept();
  inventory.presence = presenceOf({copyOf("/own", "1.0"), copyOf("/i", "2.0"), {}, {}}, false);
  EXPECT_EQ(checkOf(inventory, "versions"),
            "FAIL: version 2.0 is installed, this program carries 1.0 -> replace it with this "
            "program's: wlhid install --force [wlhid install --force]");
  EXPECT_EQ(checkOf(inventory, "presence"), "not there");
}

TEST(Diagnosis, WhatTheFrameworkSaysBesidesTheChecksIsACheck) {
  Inventory inventory = wellKept();
  EXPECT_EQ(checkOf(inventory, "presence"), "not there");
  inventory.presence.steps.back().answer = Answer::NotAsked;
  inventory.presence.installed = false;
  EXPECT_EQ(checkOf(inventory, "presence"), "FAIL: not installed, or not current -> see above");
  inventory = wellKept();
  inventory.presence = presenceOf({copyOf("/own", "1.0"), copyOf("/i", "2.0"), {}, {}}, true);
  EXPECT_EQ(checkOf(inventory, "presence"), "installed and current");
  EXPECT_EQ(diagnose(inventory).verdict,
            "The router is installed and current, but 1 of 12 checks fails.");
}

// ---- What runs

router::RouterStatus runningVersion(const std::string& version) {
  router::RouterStatus status;
  status.pid = 77;
  status.version = version;
  status.lost = 3;
  status.sessions.resize(2);
  return status;
}

TEST(Diagnosis, ARunningRouterIsOfTheInstalledVersion) {
  Inventory inventory = wellKept();
  inventory.router = runningVersion("1.0");
  EXPECT_EQ(checkOf(inventory, "running router"),
            "process 77, version 1.0, 2 sessions, reports lost: 3");
  inventory.router = runningVersion("0.9");
  EXPECT_EQ(checkOf(inventory, "running router"),
            "FAIL: process 77, version 0.9, but version 1.0 is installed -> end it; the "
            "installed version starts when an application connects: kill 77 [kill 77]");
  inventory.presence.versions.installed->state = CopyState::NoVersion;
  EXPECT_EQ(checkOf(inventory, "running router"),
            "process 77, version 0.9, 2 sessions, reports lost: 3")
      << "it is unknown which version would start";
  inventory.presence.versions.installed.reset();
  EXPECT_EQ(checkOf(inventory, "running router"),
            "process 77, version 0.9, 2 sessions, reports lost: 3");
}

TEST(Diagnosis, AJobDaemonOfOthersIsNotAsked) {
  Inventory inventory = wellKept();
  inventory.jobDaemon.isForOthers = true;
  inventory.jobDaemon.problem = "no matter";
  EXPECT_EQ(checkOf(inventory, "job daemon"), "-: this user has no access to it");
}

TEST(Diagnosis, AJobDaemonThatCannotBeStartedOrAskedFails) {
  Inventory inventory = wellKept();
  inventory.jobDaemon.problem = "the program: No such file";
  EXPECT_EQ(checkOf(inventory, "job daemon"),
            "FAIL: the program: No such file -> reinstall this program: a part of it is "
            "missing");
  inventory.jobDaemon.asked = true;
  for (const pid_t none : {-1, 0}) {
    inventory.jobDaemon.process = none;
    EXPECT_EQ(checkOf(inventory, "job daemon"),
              "FAIL: the program: No such file -> try again: wlhid doctor [wlhid doctor]");
  }
  inventory.jobDaemon.process = 1;
  EXPECT_EQ(checkOf(inventory, "job daemon"),
            "FAIL: the program: No such file -> end its process; another one starts when needed: "
            "kill -KILL 1 [kill -KILL 1]");
}

/// A daemon that keeps one job.
JobDaemonState keeping(const std::string& lastEnd, std::int64_t heldBack = 0) {
  platform::ControlReply reply;
  reply.daemonProcessIdentifier = 55;
  reply.jobs.resize(1);
  reply.jobs[0].label = "j";
  reply.jobs[0].services = {"service"};
  reply.jobs[0].processIdentifier = 77;
  reply.jobs[0].lastEnd = lastEnd;
  reply.jobs[0].heldBackMilliseconds = heldBack;
  return {true, reply, {}, false, -1};
}

TEST(Diagnosis, AJobThatEndedBadlyFailsUnlessItIsUp) {
  Inventory inventory = wellKept();
  inventory.jobDaemon = keeping("ended by signal 11", 40);
  EXPECT_EQ(checkOf(inventory, "job daemon"), "process 55");
  EXPECT_EQ(checkOf(inventory, "job j"),
            "FAIL: it ended by signal 11, and is held back for another 40 ms -> see why: "
            "wlhid log [wlhid log]");
  inventory.jobDaemon = keeping("exited with status 1");
  EXPECT_EQ(checkOf(inventory, "job j"),
            "FAIL: it exited with status 1 -> see why: wlhid log [wlhid log]");
  inventory.router = runningVersion("1.0");
  EXPECT_EQ(checkOf(inventory, "job j"), "not there") << "it is up";
  inventory.router->pid = 78;
  EXPECT_NE(checkOf(inventory, "job j"), "not there") << "another one has";
  for (const char* well : {"", "exited with status 0"}) {
    inventory.jobDaemon = keeping(well);
    EXPECT_EQ(checkOf(inventory, "job j"), "not there");
  }
}

// ---- Endpoints

TEST(Diagnosis, AnEndpointThatIsNotThereIsMissedOnlyWhereItIsServed) {
  Inventory inventory = wellKept();
  inventory.endpoints.at(0) = {"service", "/s.sock", false, 0, 0, false, {}};
  EXPECT_EQ(checkOf(inventory, "endpoint"), "none; created when needed");
  inventory.jobDaemon = keeping("");
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "FAIL: /s.sock: missing, although the job daemon listens on it -> end the job daemon; "
            "it recreates the endpoint when it starts: kill 55 [kill 55]");
  inventory.jobDaemon.reply->jobs[0].services = {"another"};
  EXPECT_EQ(checkOf(inventory, "endpoint"), "none; created when needed");
}

TEST(Diagnosis, AnEndpointThatIsNoneIsMovedAway) {
  Inventory inventory = wellKept();
  inventory.endpoints.at(0) = {"service", "/a b", true, 0, 0, false, "/a b: not a socket"};
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "FAIL: /a b: not a socket -> find out who created it, and move it away: "
            "mv -f '/a b' '/a b.removed' [mv -f '/a b' '/a b.removed']");
  inventory.jobDaemon = keeping("");
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "FAIL: /a b: not a socket -> find out who created it, and move it away: mv -f '/a b' "
            "'/a b.removed' && kill 55 [mv -f '/a b' '/a b.removed' && kill 55]");
  inventory.endpoints.at(0).exists = false;
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "FAIL: /a b: not a socket -> install the router again: wlhid install [wlhid install]");
}

TEST(Diagnosis, AnEndpointLetsItsOwnerConnect) {
  Inventory inventory = wellKept();
  Endpoint& endpoint = inventory.endpoints.at(0);
  endpoint = {"service", "/a b", true, ::geteuid(), 0, false, {}};
  EXPECT_EQ(checkOf(inventory, "endpoint"),
            "FAIL: /a b: nobody may connect to it -> let its owner connect: chmod u+rw '/a b' "
            "[chmod u+rw '/a b']");
  endpoint.owner = ::geteuid() + 1;
  EXPECT_EQ(checkOf(inventory, "endpoint"), "/a b") << "the check of the root names the owner";
}

// ---- Devices, log, disk

TEST(Diagnosis, ADeviceThatCannotBeUsedFails) {
  Inventory inventory = wellKept();
  inventory.devices.devices.resize(2);
  inventory.devices.problems = {"a.plist: malformed"};
  EXPECT_EQ(checkOf(inventory, "devices"),
            "2 can be routed; FAIL: a.plist: malformed -> repair the file, or remove the device "
            "as this list says: wlhid devices [wlhid devices]");
}

TEST(Diagnosis, ALogCanBeReadOrIsStillToBegin) {
  Inventory inventory = wellKept();
  inventory.log = {"/a b", false, false, static_cast<uid_t>(-1), 0, {}};
  EXPECT_EQ(checkOf(inventory, "log"), "none yet; a job's first line creates it");
  inventory.log = {"/a b", true, true, 12, 0, "/a b: Permission denied"};
  EXPECT_EQ(checkOf(inventory, "log"),
            "FAIL: /a b: Permission denied; it belongs to user 12 -> let its owner make it "
            "readable: chmod a+r '/a b' "
            "[chmod a+r '/a b']");
  inventory.log = {"/a b", true, false, 12, 0, "/a b: not a regular file"};
  EXPECT_EQ(checkOf(inventory, "log"),
            "FAIL: /a b: not a regular file -> move it away: mv -f '/a b' '/a b.removed' "
            "[mv -f '/a b' '/a b.removed']");
  inventory.log.owner = static_cast<uid_t>(-1);
  EXPECT_EQ(checkOf(inventory, "log"), "FAIL: /a b: not a regular file -> let this user read it");
}

std::string diskCheckOf(const DiskState& disk) {
  Inventory inventory = wellKept();
  inventory.disk = disk;
  return checkOf(inventory, "disk");
}

TEST(Diagnosis, ADiskWithRoomPasses) {
  EXPECT_EQ(diskCheckOf({std::uint64_t{5} << 20, 100, {}}), "5 MiB free");
  EXPECT_EQ(diskCheckOf({std::uint64_t{1} << 20, 16, {}}), "1 MiB free");
}

TEST(Diagnosis, ADiskWithoutBytesOrWithoutFilesIsFull) {
  const std::string remedy =
      " bytes free on the system root's disk -> free some space: nothing can be installed, and the "
      "log loses lines";
  EXPECT_EQ(diskCheckOf({(std::uint64_t{1} << 20) - 1, 100, {}}), "FAIL: full: 1048575" + remedy);
  EXPECT_EQ(diskCheckOf({std::uint64_t{5} << 20, 15, {}}), "FAIL: full: 5242880" + remedy);
}

TEST(Diagnosis, ADiskThatCannotBeAskedFailsForThatReason) {
  EXPECT_EQ(diskCheckOf({0, 0, "/root: Input/output error"}),
            "FAIL: /root: Input/output error -> check the file system");
}

TEST(Diagnosis, OfANewRootMissesTheJobAlone) {
  const testsupport::TemporaryDirectory directory;
  const platform::SystemRoot root(directory.path() / "root");
  platform::SystemRoot::setCurrent(root);
  const Inventory inventory = takeInventory(root);
  platform::SystemRoot::resetCurrent();
  EXPECT_EQ(checkOf(inventory, "system root"),
            root.path().string() + ": none yet; installing creates it");
  EXPECT_EQ(checkOf(inventory, "job"), "FAIL: there is no system root " + root.path().string() +
                                           " -> install the router: wlhid install [wlhid install]");
  EXPECT_EQ(checkOf(inventory, "log"), "none yet; a job's first line creates it");
}

}  // namespace
}  // namespace tool
