// SPDX-License-Identifier: Apache-2.0

// What an input does after a no: nobody is asked again until the answer that is known without
// asking has become another one. The router is in this process, and its authority is the test's.
#include "WLHIDAccess/Input.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "tests/integration/router/ServiceFixture.h"

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
