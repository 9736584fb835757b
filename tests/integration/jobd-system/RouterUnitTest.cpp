// SPDX-License-Identifier: Apache-2.0

// The router's stop and state through systemd, with a mock of systemd on a bus of the test's own.
#include "jobd/RouterUnit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <string>
#include <variant>

#include "tests/support/Inbox.h"
#include "tests/support/PrivateBus.h"

namespace {

using platform::system::SystemBus;

constexpr const char* kManager = "/org/freedesktop/systemd1";
constexpr const char* kUnit = "/org/freedesktop/systemd1/unit/wlhid_2drouter_2eservice";
constexpr const char* kSocket = "/org/freedesktop/systemd1/unit/wlhid_2drouter_2esocket";

using Value = std::variant<std::string, std::uint64_t, std::uint32_t, std::int32_t>;
using Properties = std::map<std::string, Value>;

struct Appending {
  sd_bus_message* message;
  int operator()(const std::string& text) const {
    return sd_bus_message_append(message, "v", "s", text.c_str());
  }
  int operator()(std::uint64_t number) const {
    return sd_bus_message_append(message, "v", "t", number);
  }
  int operator()(std::uint32_t number) const {
    return sd_bus_message_append(message, "v", "u", number);
  }
  int operator()(std::int32_t number) const {
    return sd_bus_message_append(message, "v", "i", number);
  }
};

int replyWith(sd_bus_message* call, const Properties& properties) {
  sd_bus_message* reply = nullptr;
  sd_bus_message_new_method_return(call, &reply);
  sd_bus_message_open_container(reply, 'a', "{sv}");
  for (const auto& [name, value] : properties) {
    sd_bus_message_open_container(reply, 'e', "sv");
    sd_bus_message_append(reply, "s", name.c_str());
    std::visit(Appending{reply}, value);
    sd_bus_message_close_container(reply);
  }
  sd_bus_message_close_container(reply);
  const int sent = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return sent < 0 ? sent : 1;
}

/// A systemd with one unit. Of the queries after a stop, `queriesUntilEnd` still find the process
/// that ran before; later ones find `nextProcess`.
class MockSystemd {
 public:
  explicit MockSystemd(const std::string& address) : bus_({.address = address}) {
    bool isThere = false;
    bus_.run([&] {
      sd_bus* const connection = bus_.connection();
      isThere = connection != nullptr &&
                sd_bus_add_object(connection, nullptr, kManager, &stop, this) >= 0 &&
                sd_bus_add_object(connection, nullptr, kUnit, &get, this) >= 0 &&
                sd_bus_add_object(connection, nullptr, kSocket, &getAllOfTheSocket, this) >= 0 &&
                sd_bus_request_name(connection, "org.freedesktop.systemd1", 0) >= 0;
    });
    EXPECT_TRUE(isThere);
  }

  std::atomic<std::uint32_t> process = 42;
  std::atomic<std::uint32_t> nextProcess = 0;
  std::atomic<int> queriesUntilEnd = 3;
  std::atomic<bool> refuses = false;
  testsupport::Inbox<std::string> stopped;
  // Set before it is asked.
  Properties service{{"Unknown", std::uint64_t{1}},
                     {"ActiveState", "active"},
                     {"SubState", "running"},
                     {"Result", "success"},
                     {"StateChangeTimestampMonotonic", std::uint64_t{5'000'000}},
                     {"RestartUSec", std::uint64_t{500'000}},
                     {"ExecMainStartTimestampMonotonic", std::uint64_t{4'000'000}},
                     {"MainPID", std::uint32_t{42}},
                     {"NRestarts", std::uint32_t{6}},
                     {"ExecMainCode", std::int32_t{0}},
                     {"ExecMainStatus", std::int32_t{0}}};
  Properties socket{{"ActiveState", "active"}, {"SubState", "running"}, {"Result", "success"}};

 private:
  static int stop(sd_bus_message* call, void* mock, sd_bus_error* /*unused*/) noexcept {
    auto& self = *static_cast<MockSystemd*>(mock);
    if (sd_bus_message_is_method_call(call, "org.freedesktop.systemd1.Manager", "StopUnit") <= 0)
      return 0;
    const char* unit = nullptr;
    const char* mode = nullptr;
    sd_bus_message_read(call, "ss", &unit, &mode);
    if (self.refuses)
      return sd_bus_reply_method_errorf(call, "org.freedesktop.DBus.Error.AccessDenied", "no");
    self.isStopping_ = true;
    self.stopped.put(std::string(unit) + " " + mode);
    return sd_bus_reply_method_return(call, "o", "/org/freedesktop/systemd1/job/1");
  }
  static int get(sd_bus_message* call, void* mock, sd_bus_error* /*unused*/) noexcept {
    auto& self = *static_cast<MockSystemd*>(mock);
    if (isForAll(call)) return replyWith(call, self.service);
    if (sd_bus_message_is_method_call(call, "org.freedesktop.DBus.Properties", "Get") <= 0)
      return 0;
    if (self.isStopping_ && --self.queriesUntilEnd < 0) self.process = self.nextProcess.load();
    return sd_bus_reply_method_return(call, "v", "u", self.process.load());
  }

  static int getAllOfTheSocket(sd_bus_message* call, void* mock,
                               sd_bus_error* /*unused*/) noexcept {
    return isForAll(call) ? replyWith(call, static_cast<MockSystemd*>(mock)->socket) : 0;
  }
  /// For the properties of all interfaces.
  static bool isForAll(sd_bus_message* call) {
    const char* interface = nullptr;
    return sd_bus_message_is_method_call(call, "org.freedesktop.DBus.Properties", "GetAll") > 0 &&
           sd_bus_message_read(call, "s", &interface) > 0 && std::string(interface).empty();
  }

  std::atomic<bool> isStopping_ = false;
  SystemBus bus_;
};

class RouterUnitTest : public testing::Test {
 protected:
  RouterUnitTest() { testsupport::waitForConnection(bus_); }
  std::string stop() {
    testsupport::Inbox<std::string> answer;
    unit_.stop([&](const std::string& problem) { answer.put(problem); });
    return answer.next();
  }
  jobd::RouterReport ask() {
    testsupport::Inbox<jobd::RouterReport> answer;
    unit_.ask([&](const jobd::RouterReport& router) { answer.put(router); });
    return answer.next();
  }
  testsupport::PrivateBus daemon_;
  SystemBus bus_{{.address = daemon_.address()}};
  jobd::RouterUnit unit_{bus_, "wlhid-router"};
};

TEST_F(RouterUnitTest, WaitsForTheEndOfTheProcess) {
  MockSystemd systemd(daemon_.address());
  EXPECT_EQ(stop(), "");
  EXPECT_EQ(systemd.stopped.next(), "wlhid-router.service replace");
  EXPECT_LT(systemd.queriesUntilEnd, 0) << "it was there for three queries";
}

TEST_F(RouterUnitTest, ARouterThatAClientStartedAgainIsAnother) {
  MockSystemd systemd(daemon_.address());
  systemd.nextProcess = 43;
  EXPECT_EQ(stop(), "");
}

TEST_F(RouterUnitTest, WhereNoneRunsNothingIsAwaited) {
  MockSystemd systemd(daemon_.address());
  systemd.process = 0;
  EXPECT_EQ(stop(), "");
}

TEST_F(RouterUnitTest, ARefusalIsTheCause) {
  MockSystemd systemd(daemon_.address());
  systemd.refuses = true;
  EXPECT_THAT(stop(), testing::HasSubstr("AccessDenied"));
}

TEST_F(RouterUnitTest, WithoutSystemdThereIsACause) {
  EXPECT_NE(stop(), "");
}

TEST_F(RouterUnitTest, ARunningRouterHasStartedOnceMoreThanItWasRestarted) {
  const MockSystemd systemd(daemon_.address());
  const auto router = ask();
  EXPECT_EQ(router.status.processIdentifier, 42);
  EXPECT_EQ(router.status.starts, 7);
  EXPECT_EQ(router.status.heldBackMilliseconds, 0);
  EXPECT_EQ(router.status.lastEnd, "");
  EXPECT_EQ(router.problem, "");
}

TEST_F(RouterUnitTest, OneThatCrashedIsHeldBack) {
  MockSystemd systemd(daemon_.address());
  systemd.service["SubState"] = "auto-restart";
  systemd.service["Result"] = "core-dump";
  systemd.service["MainPID"] = std::uint32_t{0};
  systemd.service["ExecMainCode"] = std::int32_t{CLD_DUMPED};
  systemd.service["ExecMainStatus"] = std::int32_t{SIGSEGV};
  systemd.service["RestartUSec"] = std::uint64_t{1'000'000'000'000'000};
  const auto router = ask();
  EXPECT_EQ(router.status.processIdentifier, 0);
  EXPECT_EQ(router.status.starts, 7);
  EXPECT_GT(router.status.heldBackMilliseconds, 1000);
  EXPECT_EQ(router.status.lastEnd, "ended by signal 11");
  systemd.service["RestartUSec"] = std::uint64_t{0};
  EXPECT_EQ(ask().status.heldBackMilliseconds, 1) << "no longer than that";
}

TEST_F(RouterUnitTest, OneThatRefusedToRunHasAStatus) {
  MockSystemd systemd(daemon_.address());
  systemd.service["Result"] = "exit-code";
  systemd.service["ExecMainCode"] = std::int32_t{CLD_EXITED};
  systemd.service["ExecMainStatus"] = std::int32_t{1};
  EXPECT_EQ(ask().status.lastEnd, "exited with status 1");
}

TEST_F(RouterUnitTest, OneThatSomebodyStoppedDidNotFail) {
  MockSystemd systemd(daemon_.address());
  systemd.service["ExecMainCode"] = std::int32_t{CLD_KILLED};
  systemd.service["ExecMainStatus"] = std::int32_t{SIGTERM};
  EXPECT_EQ(ask().status.lastEnd, "");
}

TEST_F(RouterUnitTest, OneThatNobodyNeededYetWasNotStarted) {
  MockSystemd systemd(daemon_.address());
  systemd.service["ExecMainStartTimestampMonotonic"] = std::uint64_t{0};
  systemd.service["NRestarts"] = std::uint32_t{0};
  EXPECT_EQ(ask().status.starts, 0);
}

TEST_F(RouterUnitTest, WhatKeepsItFromStartingIsNamed) {
  MockSystemd systemd(daemon_.address());
  systemd.service["Result"] = "start-limit-hit";
  EXPECT_EQ(ask().problem,
            "the router was started too often, and systemd starts it no more: allow it with "
            "systemctl reset-failed wlhid-router.service");
  systemd.socket["ActiveState"] = "failed";
  systemd.socket["Result"] = "trigger-limit-hit";
  EXPECT_EQ(ask().problem,
            "wlhid-router.socket is failed (trigger-limit-hit), so nothing starts the router: "
            "start it with systemctl restart wlhid-router.socket");
}

TEST_F(RouterUnitTest, WhatIsNotToldOrNoPropertyIsUnknown) {
  EXPECT_EQ(ask().status.starts, 0) << "without systemd";
  MockSystemd systemd(daemon_.address());
  systemd.service["MainPID"] = "forty-two";
  const auto router = ask();
  EXPECT_EQ(router.status.processIdentifier, 0);
  EXPECT_EQ(router.status.starts, 0);
  EXPECT_EQ(router.problem, "");
}

TEST_F(RouterUnitTest, AStopDoesNotWaitForQuestions) {
  MockSystemd systemd(daemon_.address());
  testsupport::Inbox<jobd::RouterReport> answers;
  constexpr int kQuestions = 100;
  for (int i = 0; i < kQuestions; ++i)
    unit_.ask([&](const jobd::RouterReport& router) { answers.put(router); });
  EXPECT_EQ(stop(), "");
  for (int i = 0; i < kQuestions; ++i) EXPECT_EQ(answers.next().status.starts, 7);
}

}  // namespace
