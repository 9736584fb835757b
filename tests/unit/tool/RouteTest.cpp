// SPDX-License-Identifier: Apache-2.0

// wlhid route, with a router played by the test.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>

#include "platform/foundation/NSNumber.h"
#include "router/Devices.h"
#include "router/RouterErrors.h"
#include "router/RouterStatus.h"
#include "testkit/RouterSide.h"
#include "tests/support/ScopedVariable.h"
#include "tests/unit/tool/FakeRouter.h"
#include "tests/unit/tool/PseudoTerminal.h"
#include "tests/unit/tool/VerbTest.h"

namespace tool {
namespace {

using platform::ScriptedConnection;

class RouteTest : public VerbTest {
 protected:
  RouteTest() { installVersion("1.0"); }

  static Outcome route(std::vector<std::string> more) {
    more.insert(more.begin(), "route");
    return run(addRouteVerb, more);
  }
  /// The same, while a router does this after the start request.
  Outcome routeWith(FakeRouter::Script router, const std::vector<std::string>& more) {
    const FakeRouter playing(platform_, std::move(router));
    return route(more);
  }
  /// The requests that the router received.
  [[nodiscard]] std::vector<std::string> request() {
    for (const auto& event : platform_.trace().events(platform::TraceKind::Message)) {
      if (event.name.starts_with("startRouting")) return event.arguments;
    }
    return {};
  }
  static void accept(ScriptedConnection& connection) {
    EXPECT_TRUE(connection.deliverReply(nullptr));
  }
};

TEST_F(RouteTest, WrongUsageIsRefusedOptionByOption) {
  const std::string device = "route needs either a DEVICE or --recording FILE";
  EXPECT_TRUE(isRefusal(route({}), 2, device));
  EXPECT_TRUE(isRefusal(route({"1", "--recording", "f"}), 2, device));
  EXPECT_TRUE(isRefusal(route({"1", "--speed", "2"}), 2,
                        "--speed goes with --recording; an added device has its own speed"));
  EXPECT_TRUE(isRefusal(route({"1", "--device", "1"}), 2,
                        "--device goes with --recording; an added device is one of them"));
  for (const char* const number : {"-1", "4294967296", "x"})
    EXPECT_EQ(route({"--recording", "f", "--device", number}).status, 2) << number;
  EXPECT_TRUE(isRefusal(route({"--recording", "f", "--speed", "fast"}), 2,
                        "--speed: fast is neither a number from 0.001 to 1000 nor max"));
  for (const char* seconds : {"-0.1", "1000000001", "nan", "inf"}) {
    EXPECT_TRUE(isRefusal(route({"1", "--seconds", seconds}), 2,
                          "--seconds must be a number from 0 to 1000000000"));
  }
  EXPECT_TRUE(isRefusal(route({"1", "--count", "-3"}), 2,
                        "--count: -3 is not a whole number of at least 0"));
  EXPECT_TRUE(
      isRefusal(route({"1", "--mode", "x"}), 2, "--mode: x is not a whole number of at least 0"));
  for (const char* tag : {"1", "1:", ":1", "x:1", "1:x", "0x10000:1", "1:0x10000"}) {
    EXPECT_TRUE(
        isRefusal(route({"1", "--tag", tag}), 2,
                  "--tag: " + std::string(tag) + " is not PAGE:USAGE, two numbers up to 0xffff"));
  }
  EXPECT_EQ(platform_.connectionCount(), 0U);
}

TEST_F(RouteTest, WithoutARouterSaysHowToInstallOne) {
  const std::string refusal =
      "the router is not installed, or not in this command's version (install it with: wlhid "
      "install)";
  platform_.installHelper(kLabel, "0.9");
  EXPECT_TRUE(isRefusal(route({"1", "--seconds", "1000000000", "--count", "0"}), 1, refusal));
}

TEST_F(RouteTest, AsksForTheDeviceInTheModeWithTheTags) {
  const FakeRouter::Script refuse = [](auto& connection) {
    connection.deliverReply(router::routerError(router::IOReturn::NoDevice, "it is gone"));
  };
  const Outcome outcome = routeWith(
      refuse, {"0x17", "--mode", "1", "--tag", "1:48", "--tag", "0xffff:0xffff", "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "the router refused: it is gone (HIDEventRouterDomain -536870208)");
  EXPECT_EQ(request(),
            (std::vector<std::string>{"23", "1", "{ 65584 = 1; 4294967295 = 1; }", "nil"}));
}

TEST_F(RouteTest, SharesTheDeviceAndAsksForAllValuesUnlessToldOtherwise) {
  const Outcome outcome = routeWith(
      [](auto& connection) {
        accept(connection);
        EXPECT_TRUE(testkit::sendReport(connection, {7}, 0));
        EXPECT_TRUE(testkit::sendElementValues(connection, {}));
      },
      {"23", "--count", "1", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "{\"status\":2}\n{\"status\":4}\n"
            "{\"report\":{\"id\":0,\"data\":\"07\"}}\n{\"elements\":[]}\n");
  EXPECT_EQ(request(), (std::vector<std::string>{"23", "0", "nil", "nil"}));
}

TEST_F(RouteTest, TheLastReportNeedNoValues) {
  const Outcome outcome = routeWith(
      [](auto& connection) {
        accept(connection);
        EXPECT_TRUE(testkit::sendReport(connection, {7}, 0));
      },
      {"23", "--count", "1", "--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_TRUE(outcome.out.ends_with("{\"report\":{\"id\":0,\"data\":\"07\"}}\n")) << outcome.out;
}

TEST_F(RouteTest, TheTimeEndsIt) {
  const Outcome outcome = routeWith(accept, {"23", "--seconds", "2", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(outcome.out.starts_with("{\"status\":2}\n")) << outcome.out;
}

TEST_F(RouteTest, TheTimeMustNotEndBeforeTheRouterHasAnswered) {
  const Outcome outcome = routeWith([](auto&) {}, {"23", "--seconds", "0.05", "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "the router has not answered in the time of --seconds, so nothing was routed: it may "
            "be waiting for a person who was asked, or be unable to start; allow more time (see "
            "why: wlhid log; what else is wrong: wlhid doctor)");
}

TEST_F(RouteTest, PeopleGetAHeaderAndASummary) {
  const std::string id = addDevice("m.hid", "Mouse");
  router::RouterStatusFile file(root_);
  router::RouterStatus running;
  running.pid = 5;
  file.write(running);
  const Outcome outcome = routeWith(
      [](auto& connection) {
        accept(connection);
        EXPECT_TRUE(testkit::sendReport(connection, {7}, 3));
        EXPECT_TRUE(testkit::sendElementValues(connection, {}));
      },
      {"Mouse", "--count", "1"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(outcome.out.starts_with("Mouse (" + id + "); Ctrl-C ends it. ")) << outcome.out;
  EXPECT_NE(outcome.out.find("  report    3  07\n"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("\n1 report in "), std::string::npos) << outcome.out;
  EXPECT_TRUE(outcome.out.ends_with("; none lost\n")) << outcome.out;
}

TEST_F(RouteTest, ADeviceThatIsNotListedHasNoName) {
  const Outcome outcome = routeWith(accept, {"0x17", "--seconds", "0.05"});
  EXPECT_TRUE(outcome.out.starts_with("Device 0x17; ")) << outcome.out;
}

TEST_F(RouteTest, ARouterThatEndsUnexpectedlyIsAFailure) {
  const Outcome outcome = routeWith(
      [](auto& connection) {
        accept(connection);
        connection.deliverInterruption();
      },
      {"23", "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with("the router ended unexpectedly")) << outcome.err;
}

TEST_F(RouteTest, AStartThatWillNeverBeAnsweredIsGivenUp) {
  const testsupport::ScopedVariable jobd("WLHID_JOBD", "/no/such/program");
  const Outcome outcome = route({"23", "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with(
      "the job daemon's program /no/such/program: No such file or directory"))
      << outcome.err;
}

TEST_F(RouteTest, ASignalEndsItInOrder) {
  // Only the command's own thread blocks the signal; here other threads existed before it.
  const Outcome outcome = routeWith(
      [command = ::pthread_self()](auto& connection) {
        accept(connection);
        ::pthread_kill(command, SIGINT);
      },
      {"23", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out.substr(0, 13), "{\"status\":2}\n");
}

TEST_F(RouteTest, AFileThatIsNoRecordingIsRefused) {
  testsupport::writeFile(directory_.path() / "f", "no recording");
  const testsupport::ScopedVariable runtime("XDG_RUNTIME_DIR", nullptr);
  const testsupport::ScopedVariable temporary("TMPDIR", directory_.path().c_str());
  const testsupport::ScopedVariable jobd("WLHID_JOBD", "/no/such/program");
  const std::string file = directory_.path() / "f";
  const Outcome outcome = route({"--recording", file});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with(file + ":1: ")) << outcome.err;
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.path()), {}), 1)
      << "its root is gone";
}

/// Plays recordings on the command's temporary roots.
class RouteRecordingTest : public RouteTest {
 protected:
  RouteRecordingTest() {
    platform_.uninstallHelper(kLabel);
    platform_.setBless([this] {
      platform_.installHelper(kLabel, "1.0");
      return platform::ScriptedOutcome{true, nullptr};
    });
    testsupport::writeFile(file_, "R: 2 05 01\nN: Mouse\n");
  }
  /// What the command has set up when it routes.
  Outcome play(const std::vector<std::string>& more) {
    return routeWith(
        [this](auto& connection) {
          for (const auto& each :
               router::configuredReplayDevices(platform::SystemRoot::current())) {
            if (each.device) device_ = *each.device;
            registryEntryID_ = each.description.registryEntryID;
          }
          connection.deliverReply(router::routerError(router::IOReturn::Underrun, "it is over"));
        },
        more);
  }
  void expectNothingLeft() const {
    EXPECT_FALSE(std::filesystem::exists(platform::SystemRoot::current().path()));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.path()), {}), 1);
  }

  const testsupport::ScopedVariable runtime_{"XDG_RUNTIME_DIR", nullptr};
  const testsupport::ScopedVariable temporary_{"TMPDIR", directory_.path().c_str()};
  const testsupport::ScopedVariable jobd_{"WLHID_JOBD", "/no/such/program"};
  const std::string file_ = directory_.path() / "f.hid";
  router::ReplayDevice device_;
  std::uint64_t registryEntryID_ = 0;
};

TEST_F(RouteRecordingTest, ItBecomesTheOnlyDeviceThere) {
  const Outcome outcome = play({"--recording", file_, "--speed", "max", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(outcome.out.ends_with("{\"ended\":\"it is over\"}\n")) << outcome.out;
  EXPECT_TRUE(device_.speed.maximum);
  EXPECT_EQ(device_.recording, "f.hid");
  EXPECT_EQ(request().at(0), std::to_string(registryEntryID_));
  expectNothingLeft();
}

TEST_F(RouteRecordingTest, ItIsPlayedAsRecordedUnlessToldOtherwise) {
  EXPECT_EQ(play({"--recording", file_, "--json"}).status, 0);
  EXPECT_EQ(device_.speed, router::ReplaySpeed());
  EXPECT_EQ(device_.device, 0U);
}

TEST_F(RouteRecordingTest, OfSeveralDevicesOneIsPlayed) {
  testsupport::writeFile(file_, "R: 2 05 01\nD: 1\nR: 2 05 0d\nE: 0.0 1 01\n");
  EXPECT_EQ(play({"--recording", file_, "--device", "1", "--json"}).status, 0);
  EXPECT_EQ(device_.device, 1U);
}

TEST_F(RouteRecordingTest, ARefusalGivesNoAdviceOnARootThatIsGone) {
  const Outcome outcome = routeWith(
      [](auto& connection) {
        accept(connection);
        connection.deliverInterruption();
      },
      {"--recording", file_, "--json"});
  EXPECT_TRUE(isRefusal({outcome.status, "", outcome.err}, 1, "the router ended unexpectedly"));
}

TEST_F(RouteRecordingTest, ItMayComeFromStandardInput) {
  {
    const int input = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    const Redirected standardInput(STDIN_FILENO, input);
    ::close(input);
    const Outcome outcome = play({"--recording", "-", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(device_.recording, "standard-input.hid");
  }
  testsupport::writeFile(file_, "no recording");
  const int input = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
  const Redirected standardInput(STDIN_FILENO, input);
  ::close(input);
  const Outcome wrong = route({"--recording", "-"});
  EXPECT_TRUE(wrong.err.starts_with("standard input:1: ")) << wrong.err;
}

}  // namespace
}  // namespace tool
