// SPDX-License-Identifier: Apache-2.0

// The scripted platform as a test kit: what it refuses, what can be undone, what is recorded, and
// what can be made to happen late.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterClient+Implementation.h"
#include "testkit/ClientTrace.h"
#include "testkit/RecordingDelegate.h"
#include "testkit/RouterSide.h"

namespace {

using namespace platform;
using testkit::Timing;
using Lines = testkit::Lines;

std::shared_ptr<NSObject> value() {
  return KQHIDDeviceElementValue::elementValue({});
}

class ScriptedKit : public ::testing::Test {
 protected:
  ScriptedKit() {
    testkit::installRouter(platform_);
    client_ =
        WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
            1, 2, nullptr, nullptr);
    client_->setDelegate(delegate_);
  }
  /// Routes on connection 1.
  void route() {
    client_->setStarted(true);
    ASSERT_TRUE(platform_.connection(1)->deliverReply(nullptr));
    platform_.trace().take();
  }
  [[nodiscard]] Lines delegateCalls() {
    Lines texts;
    for (const TraceEvent& event : platform_.trace().events(TraceKind::Delegate))
      texts.push_back(event.text);
    return texts;
  }

  ScriptedPlatform platform_;
  std::shared_ptr<testkit::RecordingDelegate> delegate_ =
      std::make_shared<testkit::RecordingDelegate>(platform_.trace());
  std::shared_ptr<WLHIDEventRouterClient> client_;
};

// ---- What does not get through

TEST_F(ScriptedKit, WhatTheInterfaceDoesNotAdmitDoesNotReachTheClient) {
  route();
  auto& router = *platform_.connection(1);
  EXPECT_FALSE(testkit::sendElementValues(router, {value(), str("no value")}));
  EXPECT_EQ(delegateCalls(), Lines{});
  EXPECT_TRUE(testkit::sendElementValues(router, {value(), value()}));
  EXPECT_EQ(delegateCalls(), Lines{"delegate receivedElementValues 2"});
}

TEST_F(ScriptedKit, AnAnswerThatIsNotAdmittedIsAnError) {
  client_->setStarted(true);
  class Stranger final : public NSObject {
   public:
    [[nodiscard]] const NSClass& isa() const override {
      static const NSClass object{"Stranger", &NSObject::classObject()};
      return object;
    }
  };
  const auto info =
      NSDictionary::dictionaryWithEntries({{str("key"), std::make_shared<Stranger>()}});
  auto& router = *platform_.connection(1);
  EXPECT_FALSE(router.deliverReply(NSError::errorWithDomain_code_userInfo(str("D"), 8, info)));
  EXPECT_EQ(router.pendingRequests(), 0U);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
  const auto logged = platform_.trace().events(TraceKind::Log);
  EXPECT_NE(logged.back().text.find("Error(S): Error Domain=NSCocoaErrorDomain Code=4101"),
            std::string::npos)
      << logged.back().text;
}

TEST_F(ScriptedKit, NothingComesThroughAfterInvalidateUnlessItIsLate) {
  route();
  auto& router = *platform_.connection(1);
  client_->setStarted(false);
  platform_.trace().take();
  EXPECT_FALSE(testkit::sendReport(router, {1}, 3));
  EXPECT_FALSE(testkit::sendElementValues(router, {value()}));
  EXPECT_FALSE(router.deliverInterruption());
  EXPECT_EQ(platform_.trace().take(), Lines{});
  EXPECT_TRUE(testkit::sendReport(router, {1}, 3, Timing::Late));
  EXPECT_EQ(delegateCalls(), Lines{"delegate receivedReportData {length = 1, bytes = 0x01} 3"});
}

TEST_F(ScriptedKit, AnAnswerAfterInvalidateIsLateOrNone) {
  client_->setStarted(true);
  auto& router = *platform_.connection(1);
  client_->setStarted(false);
  EXPECT_FALSE(router.deliverReply(nullptr));
  EXPECT_EQ(router.pendingRequests(), 1U);
  EXPECT_TRUE(router.deliverReply(nullptr, Timing::Late));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
}

TEST_F(ScriptedKit, NothingComesThroughBeforeResume) {
  const auto connection =
      NSXPCConnection::initWithMachServiceName_options(str(WLHIDEventRouterLabel), 0);
  connection->setExportedInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
  connection->setExportedObject(std::shared_ptr<WLHIDEventRouterClientProtocol>(
      client_, &WLHIDEventRouterClient::Implementation::of(*client_)));
  auto& router = *platform_.connection(1);
  EXPECT_FALSE(testkit::sendReport(router, {1}, 1));
  connection->resume();
  EXPECT_TRUE(testkit::sendReport(router, {1}, 1));
}

// ---- Late events

TEST_F(ScriptedKit, AStaleNoticeOfAnEndClosesTheNewerConnectionOnceAndThenItSettles) {
  route();
  client_->setStarted(false);
  client_->setStarted(true);
  ASSERT_EQ(platform_.connectionCount(), 2U);
  EXPECT_TRUE(platform_.connection(1)->deliverInvalidation(Timing::Late));
  EXPECT_TRUE(platform_.connection(2)->isInvalidated());
  ASSERT_EQ(platform_.connectionCount(), 3U);
  EXPECT_FALSE(platform_.connection(1)->deliverInvalidation(Timing::Late));
  EXPECT_FALSE(platform_.connection(2)->deliverInvalidation());
  EXPECT_EQ(platform_.connectionCount(), 3U);
  EXPECT_FALSE(platform_.connection(3)->isInvalidated());
}

TEST_F(ScriptedKit, AStaleNoticeIsKeptBackInOrder) {
  route();
  client_->setStarted(false);
  client_->setStarted(true);
  EXPECT_FALSE(platform_.connection(1)->deliverInvalidation());
  EXPECT_FALSE(platform_.connection(2)->isInvalidated());
}

// ---- What can be undone

TEST_F(ScriptedKit, RefusedConnectionsCanBeMadeAgain) {
  platform_.refuseConnections();
  client_->setStarted(true);
  EXPECT_EQ(platform_.connectionCount(), 0U);
  platform_.refuseConnections(false);
  client_->setStarted(false);
  client_->setStarted(true);
  EXPECT_EQ(platform_.connectionCount(), 1U);
}

TEST_F(ScriptedKit, RefusedInterfacesCanBeMadeAgain) {
  platform_.refuseInterface("WLHIDEventRouterProtocol");
  client_->setStarted(true);
  EXPECT_EQ(platform_.connectionCount(), 0U);
  platform_.refuseInterface("WLHIDEventRouterProtocol", false);
  client_->setStarted(false);
  client_->setStarted(true);
  EXPECT_EQ(platform_.connectionCount(), 1U);
}

TEST_F(ScriptedKit, APropertyListCanBeParsedInEarnestAgain) {
  const std::string text = "<plist><string>x</string></plist>";
  const auto data =
      NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  const auto parsed = [&] {
    return NSPropertyListSerialization::propertyListWithData_options_format_error(data, 0, nullptr,
                                                                                  nullptr);
  };
  platform_.setPropertyList(text, nullptr);
  EXPECT_EQ(parsed(), nullptr);
  platform_.removePropertyList(text);
  ASSERT_NE(parsed(), nullptr);
  EXPECT_EQ(parsed()->description(), "x");
}

// ---- What is recorded

TEST_F(ScriptedKit, AnEventHasAKindAnObjectANameAndArgumentsBesideItsText) {
  const auto observation = platform_.observe(*client_, "started");
  platform_.trace().take();
  client_->setStarted(true);
  const auto events = platform_.trace().events();
  const auto find = [&](TraceKind kind, const std::string& name) {
    const auto found = std::ranges::find_if(
        events, [&](const TraceEvent& event) { return event.kind == kind && event.name == name; });
    return found == events.end() ? TraceEvent() : *found;
  };
  const TraceEvent change = find(TraceKind::Change, "will change");
  EXPECT_EQ(change.object, "started");
  EXPECT_EQ(change.text, "will change started");
  const TraceEvent line = find(TraceKind::Log, "-[WLHIDEventRouterClient setStarted:]");
  EXPECT_EQ(line.object, "WLHIDEventRouterClient");
  EXPECT_EQ(line.arguments, (Lines{"0", "168", "called, newStarted = 1"}));
  EXPECT_EQ(line.text, testkit::setStarted(true));
  const TraceEvent job = find(TraceKind::Call, "SMJobCopyDictionary");
  EXPECT_EQ(job.object, "services");
  EXPECT_EQ(job.arguments, (Lines{"kSMDomainSystemLaunchd", testkit::kLabel}));
  const TraceEvent made = find(TraceKind::Connection, "initWithMachServiceName:options:");
  EXPECT_EQ(made.object, "connection 1");
  EXPECT_EQ(made.arguments, (Lines{testkit::kLabel, "0"}));
  const TraceEvent sent =
      find(TraceKind::Message,
           "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:");
  EXPECT_EQ(sent.object, "connection 1");
  EXPECT_EQ(sent.arguments, (Lines{"1", "2", "nil", "nil"}));
  const TraceEvent called = find(TraceKind::Delegate, "clientStatusChangedTo");
  EXPECT_EQ(called.object, "delegate");
  EXPECT_EQ(called.arguments, Lines{"2"});
  EXPECT_EQ(called.text, "delegate clientStatusChangedTo 2");
}

TEST_F(ScriptedKit, EveryEventHasAKindOfItsOwn) {
  route();
  client_->setStarted(false);
  platform_.trace().record("what the test says");
  const auto events = platform_.trace().events();
  EXPECT_EQ(std::ranges::count(events, TraceKind::Note, &TraceEvent::kind), 1);
  EXPECT_EQ(platform_.trace().lines().size(), events.size());
}

TEST(TraceDiff, ShowsWhereTwoTracesPart) {
  EXPECT_EQ(testkit::traceDiff({"a", "b"}, {"a", "b"}), "");
  EXPECT_EQ(testkit::traceDiff({"a", "b", "d"}, {"a", "c", "d"}), "  a\n- b\n+ c\n  d\n");
}

}  // namespace
