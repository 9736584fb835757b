// SPDX-License-Identifier: Apache-2.0

// What the system's own job daemon leaves on disk: after a kill at any moment the state before or
// after the change, whole, and after an installation and its removal what was there before.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "jobd/SystemDaemon.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceEndpoints.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/HelperImages.h"
#include "tests/support/SystemRootTest.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TreeCensus.h"
#include "tests/unit/jobd/FileOperations.h"

namespace {

using fileoperations::Dies;
using platform::ControlRequest;
using platform::FileDescriptor;
using testing::IsEmpty;
using testsupport::ChildProcess;
using testsupport::TreeCensus;
using Operation = ControlRequest::Operation;
namespace fs = std::filesystem;

const std::string kLabel(platform::kSystemJobLabel);
const platform::DeviceGrant kPedal{1000, {3, 0x5f3, 0xff, "A1"}, "Pedal"};
const platform::DeviceGrant kDial{1001, {5, 0x46d, 0xc52b, ""}, "Dial"};

class SystemState : public testsupport::SystemRootTest {
 protected:
  using Change = std::function<void()>;

  SystemState() {
    fileoperations::dieAt(0, false);  // the count is shared with processes forked from now on
  }

  fs::path image(const std::string& version, const std::vector<std::string>& services) const {
    return testsupport::makeImage(WLHID_MKIMAGE, {kLabel, version, "/bin/true", services},
                                  temporary_.path() / ("image-" + version));
  }

  /// The daemon, with its copies in a process group of its own, as systemd would kill them.
  void serve(const Change& first = [] {}) const {
    ::setpgid(0, 0);
    first();
    jobd::SystemSeams seams;
    seams.authority = [](const jobd::Question&, const jobd::Decided& decided) {
      decided({jobd::Decision::Kind::Yes, {}});
    };
    jobd::EventLoop loop;
    const jobd::SystemDaemon daemon(loop, root_, jobd::RootDirectories::openSystem(root_),
                                    FileDescriptor(::dup(listening_.get())), std::move(seams),
                                    std::chrono::minutes(10));
    loop.run();
  }
  /// What an application asks for; the daemon may die meanwhile.
  void ask(const ControlRequest& request, int helper = -1) const {
    try {
      const platform::JobDaemon daemon(root_);
      const bool isOfAJob = !request.label.empty();
      if (isOfAJob)
        (void)daemon.authorize(request.label).ask(request, helper);
      else
        (void)daemon.ask(request, helper);
    } catch (const platform::ServiceError&) {
    }
  }
  Change blessing(const fs::path& path) const {
    return [this, path] {
      const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
      ask({Operation::Bless, kLabel}, file.get());
    };
  }
  Change removal() const {
    return [this] { ask({Operation::Remove, kLabel}); };
  }
  Change granting(Operation operation, const platform::DeviceGrant& grant) const {
    ControlRequest request{operation};
    request.grant = grant;
    return [this, request] { ask(request); };
  }

  /// The state after these changes, by a daemon that nobody kills.
  TreeCensus stateAfter(const std::vector<Change>& changes) const {
    const ChildProcess daemon([&] { serve(); });
    for (const auto& change : changes) change();
    EXPECT_NE(platform::JobDaemon(root_).ask({}, -1).daemonProcessIdentifier, 0) << "it serves";
    return state();
  }
  TreeCensus state() const { return testsupport::censusOf(state_); }

  /// Makes the change with a daemon that is killed at its `count`th operation. False if it has
  /// fewer.
  bool changeAndKill(const Change& change, int count, bool isAfter, Dies who) const {
    const ChildProcess daemon([&] { serve([&] { fileoperations::dieAt(count, isAfter, who); }); });
    const ChildProcess application(change);
    // Whichever ends first; the other is killed.
    siginfo_t ended{};
    EXPECT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
    return ended.si_pid == daemon.processID() || fileoperations::hasDied();
  }

  /// Kills the daemon before and after each of its operations. The next one must find or make the
  /// state before the change or the one after it.
  void killEverywhere(const std::vector<Change>& before, const Change& change,
                      const std::vector<Dies>& all = {Dies::Group}) {
    const TreeCensus old = stateAfter(before);
    const fs::path saved = temporary_.path() / "saved";
    fs::remove_all(saved);
    fs::copy(state_, saved, fs::copy_options::recursive);
    const TreeCensus changed = stateAfter({change});
    ASSERT_THAT(testsupport::differences(old, changed), testing::Not(IsEmpty()));
    for (const Dies who : all) {
      for (const bool isAfter : {false, true}) {
        int count = 1;
        for (bool died = true; died; ++count) {
          fs::remove_all(state_);
          fs::copy(saved, state_, fs::copy_options::recursive);
          died = changeAndKill(change, count, isAfter, who);
          const TreeCensus found = stateAfter({});
          ASSERT_TRUE(found == old || found == changed)
              << "operation " << count << (isAfter ? ", after" : ", before")
              << "; not as before: " << testing::PrintToString(testsupport::differences(old, found))
              << "; not as after: "
              << testing::PrintToString(testsupport::differences(changed, found));
        }
        EXPECT_GT(count, 5) << "hardly anything was done";
      }
    }
  }

  fs::path state_ = root_.path() / "var/lib/wlhid";
};

// The copy of a helper is made by a process of its own, which may also be the only one to die.
const std::vector<Dies> kEither{Dies::Group, Dies::Process};

TEST_F(SystemState, AFirstInstallationThatIsKilledIsNoneOrWhole) {
  killEverywhere({}, blessing(image("1.0", {})), kEither);
}

TEST_F(SystemState, AnUpdateThatIsKilledLeavesTheOldOneOrTheNewOneWhole) {
  killEverywhere({blessing(image("1.0", {}))},
                 blessing(image("2.0", {kLabel, kLabel + ".control"})), kEither);
}

TEST_F(SystemState, ARemovalThatIsKilledIsNoneOrWhole) {
  killEverywhere({blessing(image("1.0", {}))}, removal());
}

TEST_F(SystemState, AGrantThatIsKilledIsNoneOrWhole) {
  killEverywhere({}, granting(Operation::Grant, kPedal));
  killEverywhere({}, granting(Operation::Grant, kDial));
}

TEST_F(SystemState, ARevocationThatIsKilledIsNoneOrWhole) {
  killEverywhere({granting(Operation::Grant, kPedal), granting(Operation::Grant, kDial)},
                 granting(Operation::Revoke, kPedal));
}

TEST_F(SystemState, WhatCannotBeCleanedUpIsNoReasonNotToServe) {
  fs::create_directories(state_ / "jobs" / (kLabel + ".plist") / "x");
  EXPECT_TRUE(stateAfter({}).contains("jobs/" + kLabel + ".plist/x"));
}

/// An entry for another user, as setfacl makes it.
bool giveAccess(const fs::path& path) {
  const struct {
    std::uint32_t version = 2;
    struct {
      std::uint16_t tag;
      std::uint16_t rights;
      std::uint32_t who;
    } entries[5] = {
        {0x01, 6, ~0U}, {0x02, 4, 12345}, {0x04, 4, ~0U}, {0x10, 4, ~0U}, {0x20, 4, ~0U}};
  } list;
  return ::setxattr(path.c_str(), "system.posix_acl_access", &list, sizeof list, 0) == 0;
}

TEST_F(SystemState, AnInstallationAndItsRemovalLeaveEverythingAsItWas) {
  const fs::path packaged = root_.path() / "usr/lib/wlhid/helpers" / kLabel;
  testsupport::writeFile(root_.path() / "usr/lib/wlhid/jobs" / (kLabel + ".plist"), "a job");
  fs::create_directories(packaged.parent_path());
  fs::copy_file(image("1.0", {}), packaged);
  testsupport::writeFile(root_.path() / "etc/wlhid/trusted.d/README", "keys go here");
  testsupport::writeFile(root_.path() / "var/log/system.log", "a line\n");
  (void)stateAfter({granting(Operation::Grant, kPedal)});
  const bool hasLists = giveAccess(state_ / "grants.plist");
  const TreeCensus before = testsupport::censusOf(root_.path());
  if (hasLists) {
    EXPECT_THAT(before.at("var/lib/wlhid/grants.plist"), testing::HasSubstr("posix_acl_access"));
  }
  (void)stateAfter({blessing(image("2.0", {})), blessing(image("3.0", {}))});
  EXPECT_THAT(testsupport::differences(before, testsupport::censusOf(root_.path())),
              testing::ElementsAre("var/lib/wlhid/helpers/" + kLabel,
                                   "var/lib/wlhid/jobs/" + kLabel + ".plist"));
  (void)stateAfter({removal()});
  EXPECT_THAT(testsupport::differences(before, testsupport::censusOf(root_.path())), IsEmpty());
}

TEST_F(SystemState, AnInstallationThatIsRefusedLeavesEverythingAsItWas) {
  (void)stateAfter({blessing(image("1.0", {}))});
  const TreeCensus before = testsupport::censusOf(root_.path());
  testsupport::writeFile(temporary_.path() / "text", "no image at all");
  (void)stateAfter({blessing(temporary_.path() / "text"), blessing(temporary_.path()),
                    blessing(image("2.0", {kLabel + ".control"}))});
  EXPECT_THAT(testsupport::differences(before, testsupport::censusOf(root_.path())), IsEmpty());
}

}  // namespace
