// SPDX-License-Identifier: Apache-2.0

// Stopping the router through systemd, with a mock of systemd on a bus of the test's own.
#include "jobd/RouterUnit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <memory>
#include <string>

#include "tests/support/Inbox.h"
#include "tests/support/PrivateBus.h"

namespace {

using platform::system::SystemBus;

constexpr const char* kManager = "/org/freedesktop/systemd1";
constexpr const char* kUnit = "/org/freedesktop/systemd1/unit/wlhid_2drouter_2eservice";

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
                sd_bus_request_name(connection, "org.freedesktop.systemd1", 0) >= 0;
    });
    EXPECT_TRUE(isThere);
  }

  std::atomic<std::uint32_t> process = 42;
  std::atomic<std::uint32_t> nextProcess = 0;
  std::atomic<int> queriesUntilEnd = 3;
  std::atomic<bool> refuses = false;
  testsupport::Inbox<std::string> stopped;

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
    if (sd_bus_message_is_method_call(call, "org.freedesktop.DBus.Properties", "Get") <= 0)
      return 0;
    if (self.isStopping_ && --self.queriesUntilEnd < 0) self.process = self.nextProcess.load();
    return sd_bus_reply_method_return(call, "v", "u", self.process.load());
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
  testsupport::PrivateBus daemon_;
  SystemBus bus_{{.address = daemon_.address()}};
  jobd::RouterUnit unit_{bus_, "wlhid-router.service"};
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

}  // namespace
