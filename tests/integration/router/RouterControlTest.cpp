// SPDX-License-Identifier: Apache-2.0

// What callers of the control service see and can do. Who sees which session:
//
//   the superuser            all, and what those that have ended have lost
//   another user             its own, with what those that have ended have lost; of others nothing,
//                            not even whether a number is taken
//
// Who ends which session:
//
//   its own                  at once
//   the superuser, any       at once
//   another user's, or none  asked; after a no both are answered alike
//
// A client whose session was ended is told so when it asks again by itself, once.
#include <poll.h>

#include <algorithm>
#include <functional>
#include <map>

#include "ServiceFixture.h"
#include "router/ReportArrivals.h"
#include "router/control/ControlProtocol.h"
#include "router/control/DeviceListing.h"
#include "tests/support/OtherUser.h"

namespace {

using router::ListedDevice;
using router::RouterControlProtocol;
using routertest::Client;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kSlow = "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n";

/// One connection to the control service. Each call waits for its reply.
class ControlClient {
 public:
  struct Answer {
    std::shared_ptr<platform::NSDictionary> dictionary;
    std::string error;  // "code description"; "none" without an answer
  };

  ControlClient()
      : connection_(platform::NSXPCConnection::initWithMachServiceName_options(
            platform::str(router::kControlService), 0)) {
    connection_->setRemoteObjectInterface(
        platform::NSXPCInterface::interfaceWithProtocol(RouterControlProtocol::protocol()));
    connection_->setInvalidationHandler([log = log] { log->add("invalidated"); });
    connection_->resume();
  }
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;
  ~ControlClient() { connection_->invalidate(); }

  router::RouterStatus status() {
    const Answer answer = ask(&RouterControlProtocol::statusWithReply);
    EXPECT_EQ(answer.error, "");
    auto status =
        answer.dictionary == nullptr ? std::nullopt : router::routerStatusIn(*answer.dictionary);
    EXPECT_TRUE(status.has_value());
    return status.value_or(router::RouterStatus());
  }
  std::vector<ListedDevice> devices() {
    const Answer answer = ask(&RouterControlProtocol::devicesWithReply);
    EXPECT_EQ(answer.error, "");
    return answer.dictionary == nullptr ? std::vector<ListedDevice>()
                                        : router::listedDevicesIn(*answer.dictionary);
  }
  /// What the arrivals are, or the error.
  std::pair<std::optional<router::ReportArrivals>, std::string> arrivalsOf(std::uint64_t device) {
    const Answer answer = askWith([device](RouterControlProtocol& router, auto reply) {
      router.arrivalsOfDevice_reply(device, std::move(reply));
    });
    if (answer.dictionary == nullptr) return {std::nullopt, answer.error};
    return {router::arrivalsIn(*answer.dictionary), answer.error};
  }
  /// Empty if it was ended.
  std::string end(std::uint64_t number) {
    auto promise = std::make_shared<std::promise<std::string>>();
    auto answer = promise->get_future();
    proxy(promise)->endSession_reply(
        number, [promise](const auto& error) { promise->set_value(textOf(error)); });
    return answer.wait_for(routertest::kPatience) == std::future_status::ready ? answer.get()
                                                                               : "none";
  }
  Answer ask(void (RouterControlProtocol::*method)(RouterControlProtocol::Reply)) {
    return askWith([method](RouterControlProtocol& router, auto reply) {
      (router.*method)(std::move(reply));
    });
  }
  Answer askWith(
      const std::function<void(RouterControlProtocol&, RouterControlProtocol::Reply)>& send) {
    auto promise = std::make_shared<std::promise<std::string>>();
    auto text = promise->get_future();
    auto dictionary = std::make_shared<std::shared_ptr<platform::NSDictionary>>();
    send(*proxy(promise), [promise, dictionary](const auto& reply, const auto& error) {
      *dictionary = reply;
      promise->set_value(textOf(error));
    });
    if (text.wait_for(routertest::kPatience) != std::future_status::ready) return {nullptr, "none"};
    std::string error = text.get();
    return {*dictionary, std::move(error)};
  }

  const std::shared_ptr<routertest::LineLog> log = std::make_shared<routertest::LineLog>();

 private:
  static std::string textOf(const std::shared_ptr<platform::NSError>& error) {
    if (error == nullptr) return {};
    const auto text = error->userInfo()->objectForKey(platform::NSLocalizedDescriptionKey);
    return std::to_string(error->code()) + " " + platform::descriptionOf(text);
  }
  std::shared_ptr<RouterControlProtocol> proxy(
      const std::shared_ptr<std::promise<std::string>>& promise) {
    return connection_->remoteObjectProxyWithErrorHandler<RouterControlProtocol>(
        [promise](const auto& error) { promise->set_value(textOf(error)); });
  }
  const std::shared_ptr<platform::NSXPCConnection> connection_;
};

class RouterControl : public routertest::ServiceFixture {
 protected:
  /// The number of the only session that the caller sees.
  static std::uint64_t numberOfOnly(ControlClient& control) {
    const auto sessions = control.status().sessions;
    EXPECT_EQ(sessions.size(), 1U);
    return sessions.empty() ? 0 : sessions.front().number;
  }
};

TEST_F(RouterControl, TheStatusIsThatOfTheMoment) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startShared();
  ControlClient control;
  EXPECT_EQ(control.status().pid, ::getpid());
  EXPECT_EQ(control.status().sessions.size(), 0U);
  Client client;
  client.start(id, 1);
  client.log->await(2);
  const auto sessions = control.status().sessions;
  ASSERT_EQ(sessions.size(), 1U);
  EXPECT_EQ(sessions[0].pid, ::getpid());
  EXPECT_EQ(sessions[0].uid, ::geteuid());
  EXPECT_EQ(sessions[0].device, id);
  EXPECT_EQ(sessions[0].deviceName, "Mouse");
  EXPECT_TRUE(sessions[0].exclusive);
  EXPECT_EQ(sessions[0].program, "/usr/bin/pen");
  EXPECT_EQ(sessions[0].unit, "pen.scope");
  EXPECT_GE(sessions[0].number, 1U);
  routerLog_->awaitLine("session " + std::to_string(sessions[0].number) + " (process ");
}

TEST_F(RouterControl, OnAUsersRootSessionsAreCountedAndEveryDeviceIsPermitted) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  start(nullptr);
  Client client;
  client.start(id);
  client.log->await(1);
  ControlClient control;
  EXPECT_EQ(numberOfOnly(control), 1U);
  EXPECT_EQ(control.status().sessions[0].program, "");
  const auto devices = control.devices();
  ASSERT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices[0].device.registryEntryID, id);
  EXPECT_EQ(devices[0].device.name, "Mouse");
  EXPECT_EQ(devices[0].deviceClass, std::nullopt);
  EXPECT_EQ(devices[0].permission, router::DevicePermission::Yes);
  EXPECT_EQ(devices[0].explanation, "you may: it is your own root's");
}

TEST_F(RouterControl, ASessionThatWasEndedDoesNotComeBackByItself) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startShared();
  ControlClient control;
  {
    Client client;
    client.start(id);
    client.log->await(3);
    EXPECT_EQ(control.end(numberOfOnly(control)), "");
    client.log->awaitLast("invalidated");
  }
  routerLog_->awaitLine("is ended on request of process " + std::to_string(::getpid()));
  Client again;
  again.start(id);
  EXPECT_THAT(again.log->await(1),
              ElementsAre("refused -536870165 the session was ended with wlhid sessions end"));
  again.start(id);
  EXPECT_EQ(again.log->await(2)[1], "started");
}

TEST_F(RouterControl, AStartThatWaitsIsEndedToo) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  authority_->isUndecided = true;
  startShared();
  Client client;
  client.start(id);
  authority_->asked.awaitLine("start");
  ControlClient control;
  EXPECT_EQ(control.end(numberOfOnly(control)), "");
  client.log->awaitLine("refused -536870165 the start request was given up: the session was ended");
  client.log->awaitLast("invalidated");
  Client again;
  again.start(id);
  EXPECT_THAT(again.log->await(1),
              ElementsAre("refused -536870165 the session was ended with wlhid sessions end"));
}

TEST_F(RouterControl, WhatIsNotThereCannotBeEnded) {
  startShared();
  if (!testsupport::isSuperuser()) authority_->end = {true, {}, {}};
  ControlClient control;
  EXPECT_EQ(control.end(7), "-536870160 there is no session 7");
}

TEST_F(RouterControl, OthersSessionsAreNobodysBusiness) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startShared();
  Client roots;
  roots.start(id);
  roots.log->await(1);
  actAs(testsupport::kOtherUser);
  Client others;
  others.start(id);
  others.log->await(1);
  ControlClient control;
  const auto seen = control.status().sessions;
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].uid, testsupport::kOtherUser);
  actAs(0);
  ControlClient superuser;
  EXPECT_EQ(superuser.status().sessions.size(), 2U);
}

TEST_F(RouterControl, LossesOfEndedSessionsAreTheirUsersAndTheSuperusersToSee) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  const std::uint64_t id = addDevice("fast", "E: 0.0 2 07 01\nE: 0.0001 2 07 02\n", "1", true);
  router::RouterLimits limits;
  limits.backlogPerClient = 1;
  startShared(limits);
  ControlClient superuser;
  actAs(testsupport::kOtherUser);
  {
    Client slow;
    slow.receiver->hold();
    slow.start(id);
    routerLog_->awaitLine("is too slow");
    slow.receiver->release();
  }
  routerLog_->awaitLine("has ended");
  EXPECT_GT(superuser.status().lost, 0U);
  ControlClient same;
  EXPECT_EQ(same.status().lost, superuser.status().lost);
  actAs(testsupport::kOtherUser + 1);
  ControlClient other;
  EXPECT_EQ(other.status().lost, 0U);
}

TEST_F(RouterControl, AForeignNumberAndAnUnknownOneAreAnsweredAlike) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startShared();
  Client roots;
  roots.start(id);
  roots.log->await(1);
  ControlClient superuser;
  const std::uint64_t foreign = numberOfOnly(superuser);
  const std::uint64_t unknown = foreign + 1;
  actAs(testsupport::kOtherUser);
  ControlClient control;
  for (const std::uint64_t number : {foreign, unknown}) {
    EXPECT_EQ(control.end(number), "-536870174 session " + std::to_string(number) +
                                       " is not one of yours; ending another user's is not "
                                       "permitted: nobody may");
    routerLog_->awaitLine("may not end session " + std::to_string(number));
  }
  EXPECT_THAT(authority_->asked.lines(), ElementsAre("start", "end " + std::to_string(foreign),
                                                     "end " + std::to_string(unknown)));
  EXPECT_EQ(superuser.status().sessions.size(), 1U);
  authority_->end = {true, {}, {}};
  EXPECT_EQ(control.end(foreign), "");
  roots.log->awaitLast("invalidated");
}

TEST_F(RouterControl, TheSuperuserIsNotAsked) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startShared();
  actAs(testsupport::kOtherUser);
  Client others;
  others.start(id);
  others.log->await(1);
  actAs(0);
  ControlClient superuser;
  EXPECT_EQ(superuser.end(numberOfOnly(superuser)), "");
  others.log->awaitLast("invalidated");
  EXPECT_THAT(authority_->asked.lines(), ElementsAre("start"));
}

TEST_F(RouterControl, AProcessIsToldWhenItsReportsCame) {
  const std::uint64_t id = addDevice("fast", "E: 0.0 2 07 01\nE: 0.001 2 07 02\n", "1", true);
  startShared();
  Client client;
  client.start(id);
  client.log->await(2);
  ControlClient control;
  const auto first = control.arrivalsOf(id);
  EXPECT_EQ(first.second, "");
  ASSERT_TRUE(first.first.has_value());
  EXPECT_GE(first.first->first, 2U) << "reports are numbered from the beginning of the routing";
  EXPECT_EQ(first.first->times.size(), 0U) << "they are noted from the first question on";
  client.log->await(client.log->lines().size() + 10);
  const auto later = control.arrivalsOf(id);
  ASSERT_TRUE(later.first.has_value());
  EXPECT_EQ(later.first->first, first.first->first);
  EXPECT_GE(later.first->times.size(), 1U);
  EXPECT_TRUE(std::ranges::is_sorted(later.first->times));
}

TEST_F(RouterControl, WhenKeysWerePressedIsNobodyElsesBusiness) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startShared();
  Client client;
  client.start(id);
  client.log->await(2);
  const std::string refused = "-536870160 this process does not route the device";
  endpoints_->isOtherProcess = true;
  ControlClient otherProcess;
  EXPECT_NE(numberOfOnly(otherProcess), 0U) << "it may see the session";
  EXPECT_EQ(otherProcess.arrivalsOf(id).second, refused);
  endpoints_->isOtherProcess = false;
  ControlClient same;
  EXPECT_EQ(same.arrivalsOf(id).second, "");
  EXPECT_EQ(same.arrivalsOf(id + 1).second, refused);
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  actAs(testsupport::kOtherUser);
  ControlClient otherUser;
  EXPECT_EQ(otherUser.arrivalsOf(id).second, refused);
}

TEST_F(RouterControl, EachDeviceIsListedWithWhatTheCallerMay) {
  const std::vector<std::uint64_t> ids = addMice(4);
  router::ReportIDs two;
  two.set(2).set(5);
  authority_->previews[ids[0]] = {true, {}, router::allReports()};
  authority_->previews[ids[1]] = {true, {}, two};
  authority_->previews[ids[2]] = {false, "not permitted: it needs a person", {}, true};
  authority_->previews[ids[3]] = {false, "not permitted: the login session is not active", {}};
  startShared();
  ControlClient control;
  std::map<std::uint64_t, std::string> said;
  for (const ListedDevice& each : control.devices()) {
    said[each.device.registryEntryID] =
        std::string(router::nameOf(each.permission)) + ": " + each.explanation;
    EXPECT_EQ(each.deviceClass, router::DeviceClass::Sensitive);
    EXPECT_EQ(each.reason, "it has keys");
    EXPECT_THAT(each.ordinaryReports, ElementsAre(2, 5));
  }
  EXPECT_EQ(said[ids[0]], "yes: you may");
  EXPECT_EQ(said[ids[1]],
            "partly: you may, its reports 2, 5; for the others an administrator has to agree each "
            "time");
  EXPECT_EQ(said[ids[2]], "administrator: an administrator has to agree each time");
  EXPECT_EQ(said[ids[3]], "no: not permitted: the login session is not active");
}

TEST_F(RouterControl, OfAnOrdinaryDeviceTheDeclaredReportsAreAllThereIs) {
  const std::vector<std::uint64_t> ids = addMice(1);
  router::ReportIDs declared;
  declared.set(0);
  authority_->classification = {router::DeviceClass::Ordinary, "it has buttons", {}};
  authority_->previews[ids[0]] = {true, {}, declared};
  startShared();
  ControlClient control;
  const auto devices = control.devices();
  ASSERT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices[0].permission, router::DevicePermission::Yes);
  EXPECT_EQ(devices[0].explanation, "you may");
}

TEST_F(RouterControl, TheRouterDoesNotEndAsLongAsARefusalCounts) {
  authority_->remembers = true;
  idleLimit_ = std::chrono::milliseconds(1);
  startShared();
  authority_->memories.await(3);
  pollfd idle{router_->idleDescriptor(), POLLIN, 0};
  EXPECT_EQ(::poll(&idle, 1, 0), 0);
  {
    const std::lock_guard lock(authority_->mutex);
    authority_->remembers = false;
  }
  EXPECT_EQ(::poll(&idle, 1, 30'000), 1);
}

TEST_F(RouterControl, AnAnswerThatDoesNotComeIsNotAwaitedForEver) {
  const std::vector<std::uint64_t> ids = addMice(2);
  authority_->previews[ids[0]] = {true, {}, router::allReports()};
  router::RouterLimits limits;
  limits.controlTimeout = std::chrono::milliseconds(1);
  startShared(limits);
  ControlClient control;
  for (int i = 0; i < 2; ++i) {
    std::map<std::uint64_t, router::DevicePermission> said;
    for (const ListedDevice& each : control.devices())
      said[each.device.registryEntryID] = each.permission;
    EXPECT_EQ(said[ids[0]], router::DevicePermission::Yes);
    EXPECT_EQ(said[ids[1]], router::DevicePermission::Unknown);
  }
}

TEST_F(RouterControl, AUserWhoAsksTooOftenIsRefused) {
  router::RouterLimits limits;
  limits.controlRequestsPerUser = {2, 0.001};
  startShared(limits);
  ControlClient control;
  EXPECT_EQ(control.ask(&RouterControlProtocol::statusWithReply).error, "");
  EXPECT_EQ(control.ask(&RouterControlProtocol::devicesWithReply).error, "");
  const std::string busy = "-536870187 too many requests from this user; try again later";
  EXPECT_EQ(control.ask(&RouterControlProtocol::statusWithReply).error, busy);
  EXPECT_EQ(control.ask(&RouterControlProtocol::devicesWithReply).error, busy);
  EXPECT_EQ(control.end(1), busy);
}

TEST_F(RouterControl, AUserHasSoManyConnections) {
  router::RouterLimits limits;
  limits.controlConnectionsPerUser = 1;
  startShared(limits);
  ControlClient first;
  first.status();
  ControlClient second;
  EXPECT_NE(second.ask(&RouterControlProtocol::statusWithReply).error, "");
  second.log->awaitLine("invalidated");
  EXPECT_EQ(first.ask(&RouterControlProtocol::statusWithReply).error, "");
}

TEST_F(RouterControl, StrangersAreNotServed) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  start(nullptr);
  actAs(testsupport::kOtherUser);
  ControlClient control;
  EXPECT_NE(control.ask(&RouterControlProtocol::statusWithReply).error, "");
  control.log->awaitLine("invalidated");
  routerLog_->awaitLine("refused: process");
}

TEST_F(RouterControl, StoppingEndsItsConnections) {
  startShared();
  ControlClient control;
  control.status();
  router_->stop();
  control.log->awaitLine("invalidated");
}

}  // namespace
