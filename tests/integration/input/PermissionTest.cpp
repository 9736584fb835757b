// SPDX-License-Identifier: Apache-2.0

// What an input does after a no: nobody is asked again until the answer that is known without
// asking has become another one. The router is in this process, and its authority is the test's.
#include <future>

#include "WLHIDAccess/Input.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "tests/integration/router/ServiceFixture.h"
#include "tests/support/TestRouter.h"

namespace {

using wlhid::Input;
using wlhid::InputState;

const router::RoutingAnswer kYes{true, {}, router::allReports()};
const router::RoutingAnswer kAway{false, "not permitted: the login session is not active", {}};
const router::RoutingAnswer kPerson{false, "not permitted: nobody agreed", {}, true};

class PermissionTest : public routertest::ServiceFixture {
 protected:
  PermissionTest() {
    platform::xpcProvider().exchange(realConnections_);
    platform_.setBundleCopy(std::string(WLHIDEventRouterLabel), "7");
    platform_.installHelper(std::string(WLHIDEventRouterLabel), "7");
  }
  void answer(const router::RoutingAnswer& preview, const router::RoutingAnswer& start) {
    const std::lock_guard lock(authority_->mutex);
    authority_->previews[device_] = preview;
    authority_->start = start;
  }
  void begin() {
    startShared();
    input_ =
        std::make_unique<Input>(wlhid::InputOptions{.device = device_},
                                wlhid::InputHandlers{.status = [this](const wlhid::Status& status) {
                                  log_.add(status.text);
                                }});
  }

  void takeBack(const std::string& reason) {
    router::RoutingCaller::Revoked revoked;
    {
      const std::lock_guard lock(authority_->mutex);
      revoked = authority_->revoked;
    }
    revoked(reason);
  }
  /// As the command would: that of the only session.
  static void endSession() {
    using Control = router::RouterControlProtocol;
    const auto connection = platform::NSXPCConnection::initWithMachServiceName_options(
        platform::str(router::kControlService), 0);
    connection->setRemoteObjectInterface(
        platform::NSXPCInterface::interfaceWithProtocol(Control::protocol()));
    connection->resume();
    const auto control = connection->remoteObjectProxyWithErrorHandler<Control>({});
    std::promise<std::shared_ptr<platform::NSError>> ended;
    control->statusWithReply([&](const auto& reply, const auto&) {
      const auto status = router::routerStatusIn(*reply);
      control->endSession_reply(status->sessions.at(0).number,
                                [&](const auto& error) { ended.set_value(error); });
    });
    auto outcome = ended.get_future();
    ASSERT_EQ(outcome.wait_for(routertest::kPatience), std::future_status::ready);
    EXPECT_EQ(outcome.get(), nullptr);
    connection->invalidate();
  }

  const std::shared_ptr<platform::XPCProvider> realConnections_ = platform::xpcProvider().load();
  platform::ScriptedPlatform platform_;
  const std::uint64_t device_ = addDevice("mouse", routertest::kThreeReports, "1", true);
  routertest::LineLog log_;
  std::unique_ptr<Input> input_;
};

TEST_F(PermissionTest, GoesOnWhenThePersonIsBack) {
  answer(kAway, kAway);
  begin();
  log_.awaitLine("not allowed: the login session is not active");
  EXPECT_EQ(input_->status().state, InputState::NotAllowed);
  EXPECT_EQ(input_->status().error->code(), -536870174);
  answer(kYes, kYes);
  log_.awaitLast("routing Mouse");
  EXPECT_EQ(authority_->asked.count(), 2U);
}

TEST_F(PermissionTest, WhatARouterSaysIsMadePrintable) {
  const router::RoutingAnswer hostile{false, "not permitted: \x1b[2J\ngranted\u202e", {}};
  answer(hostile, hostile);
  begin();
  log_.awaitLine("not allowed: \\x1b[2J\\x0agranted\\u202e");
}

TEST_F(PermissionTest, GoesOnWhenThePersonWasAwayForAWhile) {
  answer(kYes, kYes);
  begin();
  log_.awaitLine("routing Mouse");
  answer(kAway, kAway);
  takeBack("the login session is not active");
  log_.awaitLine("reconnecting: the router has closed the connection");
  log_.awaitLine("not allowed: the login session is not active");
  answer(kYes, kYes);
  log_.awaitLast("routing Mouse");
}

/// Nobody has to be asked, so another attempt bothers nobody.
TEST_F(PermissionTest, ANoThatContradictsWhatIsKnownIsNotTheLastWord) {
  answer(kYes, kAway);
  begin();
  log_.awaitLine("not allowed: the login session is not active");
  authority_->asked.await(3);
  answer(kYes, kYes);
  log_.awaitLast("routing Mouse");
}

TEST_F(PermissionTest, EndsWithItsSessionUntilTheApplicationWantsItAgain) {
  answer(kYes, kYes);
  begin();
  log_.awaitLine("routing Mouse");
  endSession();
  log_.awaitLast("ended: the session was ended with wlhid sessions end");
  EXPECT_EQ(input_->status().state, InputState::Ended);
  EXPECT_EQ(input_->status().error->code(), -536870165);
  EXPECT_EQ(input_->client(), nullptr);
  input_->retry();
  log_.awaitLast("routing Mouse");
}

/// What has changed while there was no router is told by the next one.
TEST_F(PermissionTest, AWatchTellsThatThePermissionHasChanged) {
  answer(kAway, kAway);
  startShared();
  const auto permission = [this](const char* what) {
    return [this, what](const wlhid::Device& device) {
      log_.add(std::string(what) + nameOf(device.permission) + ", " + device.explanation);
    };
  };
  const wlhid::DeviceWatch watch(
      {.listed = [&](const auto& all) { permission("first ")(all.at(0)); },
       .arrived = permission("arrived "),
       .changed = permission("now "),
       .departed = permission("departed ")});
  log_.awaitLine("first no");
  router_.reset();
  answer(kYes, kYes);
  startShared();
  log_.awaitLine("now yes");
  EXPECT_EQ(log_.count(), 2U);
}

TEST_F(PermissionTest, APersonWhoSaidNoIsNotAskedAgainUntilTheApplicationWantsTo) {
  answer(kPerson, kPerson);
  begin();
  log_.awaitLine("not allowed: nobody agreed");
  // The permission is looked at again from time to time, without asking anybody.
  authority_->previewed.await(authority_->previewed.count() + 2);
  EXPECT_EQ(authority_->asked.count(), 1U);
  answer(kPerson, kYes);
  input_->retry();
  log_.awaitLine("routing Mouse");
  EXPECT_EQ(authority_->asked.count(), 2U);
}

/// Its endpoints know the router's own service only.
class WithoutDirectoryTest : public routertest::RouterFixture {
 protected:
  WithoutDirectoryTest() {
    platform::xpcProvider().exchange(realConnections_);
    platform_.setBundleCopy(std::string(WLHIDEventRouterLabel), "7");
    platform_.installHelper(std::string(WLHIDEventRouterLabel), "7");
  }
  const std::shared_ptr<platform::XPCProvider> realConnections_ = platform::xpcProvider().load();
  platform::ScriptedPlatform platform_;
};

TEST_F(WithoutDirectoryTest, WhoeverKnowsTheDeviceIsServed) {
  const std::uint64_t device = addDevice("mouse", routertest::kThreeReports, "1", true);
  startRouter();
  routertest::LineLog log;
  const Input input({.device = device},
                    {.report = [&](const wlhid::Report&) { log.add("report"); },
                     .status = [&](const wlhid::Status& status) { log.add(status.text); }});
  log.awaitLine(platform::stringWithFormat("routing 0x%llx", device));
  log.awaitLine("report");
}

/// Its request is wrong, and so would be the next one.
TEST_F(WithoutDirectoryTest, AWrongRequestIsNotRepeated) {
  class Refusing final : public testsupport::RouterSession {
   public:
    Refusing(const std::shared_ptr<platform::NSXPCConnection>& accepted, routertest::LineLog& log)
        : RouterSession(accepted), log_(log) {}

   private:
    void answer(const testsupport::StartRequest&, StartReply reply) override {
      log_.add("asked");
      reply(platform::NSError::errorWithDomain_code_userInfo(
          platform::str(HIDEventRouterDomain), -536870206,
          platform::NSDictionary::dictionaryWithEntries(
              {{platform::str(platform::NSLocalizedDescriptionKey),
                platform::str("the dial can only be shared")}})));
    }
    routertest::LineLog& log_;
  };
  routertest::LineLog asked;
  const auto router = testsupport::TestRouter::serve(listen(), [&](const auto& connection) {
    return std::make_shared<Refusing>(connection, asked);
  });
  routertest::LineLog log;
  Input input({.device = 0x2a},
              {.status = [&](const wlhid::Status& status) { log.add(status.text); }});
  log.awaitLast("stopped: the dial can only be shared");
  EXPECT_EQ(input.status().state, InputState::Stopped);
  EXPECT_EQ(input.client(), nullptr);
  EXPECT_EQ(asked.count(), 1U);
  input.retry();
  asked.await(2);
  log.awaitLast("stopped: the dial can only be shared");
  EXPECT_EQ(asked.count(), 2U);
}

/// Nobody says when a no has become a yes, so the application has to.
TEST_F(WithoutDirectoryTest, ANoLastsUntilTheApplicationTriesAgain) {
  const auto authority = std::make_shared<routertest::PresetAuthority>();
  authority->start = kPerson;
  authority_ = authority;
  startRouter();
  routertest::LineLog log;
  Input input({.device = addDevice("mouse", routertest::kThreeReports, "1", true)},
              {.status = [&](const wlhid::Status& status) { log.add(status.text); }});
  log.awaitLine("not allowed: nobody agreed");
  {
    const std::lock_guard lock(authority->mutex);
    authority->start = kYes;
  }
  input.retry();
  log.awaitLine("routing 0x");
  EXPECT_EQ(authority->asked.count(), 2U);
}

}  // namespace
