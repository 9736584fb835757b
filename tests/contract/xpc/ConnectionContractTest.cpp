// SPDX-License-Identifier: Apache-2.0

// What the client relies on in a connection, tested on the real and the scripted layer alike.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/foundation/NSDictionary.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "platform/scripted/Trace.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "tests/contract/xpc/Layer.h"
#include "tests/support/TraceDiff.h"

namespace test {
namespace {

using namespace platform;

/// Records what the router sends.
class Receiver final : public WLHIDEventRouterClientProtocol {
 public:
  explicit Receiver(Trace& events) : events_(events) {}
  void receivedData_forReportID(const std::shared_ptr<NSData>&, std::uint32_t reportID) override {
    events_.record("report " + std::to_string(reportID));
  }
  void receivedElementValues(const std::shared_ptr<NSArray>&) override { events_.record("values"); }

 private:
  Trace& events_;
};

struct LayerKind {
  const char* name;
  std::unique_ptr<Layer> (*make)();
};

class ConnectionContract : public ::testing::TestWithParam<LayerKind> {
 protected:
  /// Configured like a client's, not resumed. Its events start with `prefix`.
  std::shared_ptr<NSXPCConnection> makeConnection(const std::string& prefix = "") {
    auto connection = layer_->makeConnection();
    connection->setExportedInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
    connection->setExportedObject<WLHIDEventRouterClientProtocol>(receiver_);
    connection->setInterruptionHandler([this, prefix] { events_.record(prefix + "interruption"); });
    connection->setInvalidationHandler([this, prefix] { events_.record(prefix + "invalidation"); });
    connection->setRemoteObjectInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
    return connection;
  }
  /// For a handler to hold: the future is ready when the layer has released the handler, which it
  /// does once the report has been made or dropped.
  static std::pair<std::shared_ptr<void>, std::future<void>> releaseNote() {
    auto released = std::make_shared<std::promise<void>>();
    auto future = released->get_future();
    return {std::shared_ptr<void>(nullptr, [released](void*) { released->set_value(); }),
            std::move(future)};
  }
  std::shared_ptr<WLHIDEventRouterProtocol> proxy(NSXPCConnection& connection) {
    return connection.remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
        [this](const std::shared_ptr<NSError>& error) {
          events_.record("error " + std::to_string(error->code()));
        });
  }
  void request(NSXPCConnection& connection, std::function<void()> onReply = nullptr) {
    proxy(connection)
        ->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
            1, 0, nullptr, nullptr,
            [this, onReply = std::move(onReply)](const std::shared_ptr<NSError>& error) {
              events_.record("reply " + descriptionOf(error));
              if (onReply) onReply();
            });
  }
  /// A resumed connection whose start request the peer has received.
  std::shared_ptr<NSXPCConnection> makePending() {
    auto connection = makeConnection();
    connection->resume();
    request(*connection);
    EXPECT_TRUE(layer_->waitForRequest());
    return connection;
  }
  /// A resumed connection that the peer has seen.
  std::shared_ptr<NSXPCConnection> makeLive() {
    auto connection = makePending();
    layer_->peerReplies(nullptr);
    EXPECT_TRUE(events_.waitFor("reply (null)"));
    events_.take();
    return connection;
  }
  void expectEvents(const Lines& expected) {
    EXPECT_TRUE(events_.waitFor(expected.back()));
    EXPECT_TRUE(sameTrace(expected, events_.lines()));
  }

  Trace events_;
  std::shared_ptr<Receiver> receiver_ = std::make_shared<Receiver>(events_);
  std::unique_ptr<Layer> layer_ = GetParam().make();
};

TEST_P(ConnectionContract, NothingRunsOnTheCallersThread) {
  const auto connection = makeLive();
  request(*connection);
  layer_->peerSendsReport(1);
  EXPECT_TRUE(events_.waitFor("report 1"));
  connection->invalidate();
  layer_->settle();
  EXPECT_TRUE(events_.waitFor("invalidation"));
  EXPECT_TRUE(sameTrace({}, events_.linesOfThread(std::this_thread::get_id())));
}

TEST_P(ConnectionContract, AReplyComesOnceAndNoErrorAfterIt) {
  const auto connection = makePending();
  layer_->peerReplies(nullptr);
  EXPECT_TRUE(events_.waitFor("reply (null)"));
  layer_->peerSaysFarewell();
  expectEvents({"reply (null)", "invalidation"});
}

TEST_P(ConnectionContract, AnErrorOfThePeerIsAReply) {
  const auto connection = makePending();
  layer_->peerReplies(NSError::errorWithDomain_code_userInfo(str("D"), -7, nullptr));
  expectEvents({"reply Error Domain=D Code=-7 \"(null)\""});
}

TEST_P(ConnectionContract, AReplyThatThePeerDropsIsAnErrorAndTheConnectionLives) {
  const auto connection = makePending();
  layer_->peerDropsReply();
  EXPECT_TRUE(events_.waitFor("error 4101"));
  layer_->peerSendsReport(2);
  expectEvents({"error 4101", "report 2"});
}

TEST_P(ConnectionContract, LocalInvalidateFailsWhatIsPendingThenReportsOnce) {
  const auto connection = makePending();
  connection->invalidate();
  connection->invalidate();
  layer_->settle();
  layer_->settle();
  expectEvents({"error 4099", "invalidation"});
}

TEST_P(ConnectionContract, AFarewellFailsWhatIsPendingThenReportsOnce) {
  const auto connection = makePending();
  layer_->peerSaysFarewell();
  EXPECT_TRUE(events_.waitFor("invalidation"));
  connection->invalidate();
  layer_->settle();
  expectEvents({"error 4099", "invalidation"});
}

TEST_P(ConnectionContract, ACrashFailsWhatIsPendingThenInterruptsAndTheConnectionStaysUsable) {
  const auto connection = makePending();
  layer_->peerCrashes();
  expectEvents({"error 4097", "interruption"});
  events_.take();
  request(*connection);
  EXPECT_TRUE(layer_->waitForRequest());
  layer_->peerReplies(nullptr);
  expectEvents({"reply (null)"});
}

TEST_P(ConnectionContract, InvalidateFromAHandlerDoesNotNest) {
  const auto connection = makeConnection();
  connection->resume();
  request(*connection, [this, connection] {
    connection->invalidate();
    events_.record("still in the reply");
  });
  ASSERT_TRUE(layer_->waitForRequest());
  layer_->peerReplies(nullptr);
  EXPECT_TRUE(events_.waitFor("still in the reply"));
  layer_->settle();
  expectEvents({"reply (null)", "still in the reply", "invalidation"});
}

TEST_P(ConnectionContract, DeliveriesKeepTheirOrder) {
  const auto connection = makeLive();
  Lines expected;
  for (std::uint32_t i = 0; i < 100; ++i) {
    layer_->peerSendsReport(i);
    expected.push_back("report " + std::to_string(i));
  }
  expectEvents(expected);
}

TEST_P(ConnectionContract, TheExportedObjectIsHeldWeaklyAndItsEndIsNotTheConnections) {
  const auto connection = makeLive();
  const std::weak_ptr<Receiver> weak = receiver_;
  receiver_.reset();
  EXPECT_TRUE(weak.expired());
  layer_->peerSendsReport(1);
  layer_->peerSaysFarewell();
  expectEvents({"invalidation"});
}

TEST_P(ConnectionContract, DroppedWithoutInvalidateItEndsQuietly) {
  auto connection = makePending();
  connection.reset();
  layer_->settle();
  expectEvents({"error 4099"});
}

TEST_P(ConnectionContract, HandlersAreReleasedAfterTheInvalidation) {
  const auto connection = makeLive();
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> weak = token;
  connection->setInterruptionHandler([token] {});
  connection->setInvalidationHandler([this, token = std::move(token)] { events_.record("last"); });
  connection->invalidate();
  layer_->settle();
  EXPECT_TRUE(events_.waitFor("last"));
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!weak.expired() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  EXPECT_TRUE(weak.expired());
}

TEST_P(ConnectionContract, ARequestHoldsItsReplyUntilItRan) {
  const auto connection = makeConnection();
  connection->resume();
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> weak = token;
  request(*connection, [token = std::move(token)] {});
  ASSERT_TRUE(layer_->waitForRequest());
  EXPECT_FALSE(weak.expired());
  layer_->peerReplies(nullptr);
  EXPECT_TRUE(events_.waitFor("reply (null)"));
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!weak.expired() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  EXPECT_TRUE(weak.expired());
}

TEST_P(ConnectionContract, ARequestOnAnInvalidConnectionIsAnError) {
  const auto connection = makeLive();
  connection->invalidate();
  layer_->settle();
  EXPECT_TRUE(events_.waitFor("invalidation"));
  request(*connection);
  layer_->settle();
  expectEvents({"invalidation", "error 4099"});
}

TEST_P(ConnectionContract, AOneWayMessageOnAnInvalidConnectionIsAnError) {
  const auto connection = makeLive();
  connection->invalidate();
  layer_->settle();
  EXPECT_TRUE(events_.waitFor("invalidation"));
  proxy(*connection)->stopRoutingService();
  layer_->settle();
  expectEvents({"invalidation", "error 4099"});
}

TEST_P(ConnectionContract, WhatCannotBeEncodedIsAnErrorAndTheConnectionLives) {
  const auto connection = makeLive();
  const auto array = NSMutableArray::array();
  array->addObject(array);
  proxy(*connection)
      ->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
          1, 0, NSDictionary::dictionaryWithEntries({{str("itself"), array}}), nullptr,
          [this](const std::shared_ptr<NSError>&) { events_.record("reply"); });
  layer_->settle();
  EXPECT_TRUE(events_.waitFor("error " + std::to_string(EINVAL)));
  array->removeObjectAtIndex(0);
  request(*connection);
  EXPECT_TRUE(layer_->waitForRequest());
  layer_->peerReplies(nullptr);
  expectEvents({"error " + std::to_string(EINVAL), "reply (null)"});
}

TEST_P(ConnectionContract, WithoutAFittingRemoteInterfaceThereIsNoProxy) {
  const auto connection = layer_->makeConnection();
  EXPECT_EQ(connection->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(nullptr),
            nullptr);
  connection->setRemoteObjectInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
  EXPECT_EQ(connection->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(nullptr),
            nullptr);
  EXPECT_NE(connection->remoteObjectProxyWithErrorHandler<WLHIDEventRouterClientProtocol>(nullptr),
            nullptr);
}

TEST_P(ConnectionContract, AnInactiveConnectionReportsItsInvalidationToo) {
  const auto connection = makeConnection();
  connection->invalidate();
  layer_->settle();
  expectEvents({"invalidation"});
}

TEST_P(ConnectionContract, WhatIsNotAdmittedIsNotDeliveredAndTheConnectionLives) {
  const auto connection = makeConnection();
  const auto interface =
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol());
  interface->setClasses_forSelector_argumentIndex_ofReply(
      {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()},
      "receivedElementValues:", 0, /*ofReply=*/false);
  connection->setExportedInterface(interface);
  connection->resume();
  request(*connection);
  ASSERT_TRUE(layer_->waitForRequest());
  layer_->peerReplies(nullptr);
  ASSERT_TRUE(events_.waitFor("reply (null)"));
  events_.take();
  layer_->peerSendsElementValues(NSMutableArray::arrayWithObjects({str("no element value")}));
  layer_->peerSendsElementValues(NSArray::arrayWithObjects({}));
  layer_->peerSendsReport(1);
  layer_->peerSendsElementValues(
      NSMutableArray::arrayWithObjects({KQHIDDeviceElementValue::elementValue({})}));
  expectEvents({"report 1", "values"});
}

TEST_P(ConnectionContract, AnAnswerThatIsNotAdmittedIsAnErrorAndTheConnectionLives) {
  const auto connection = makePending();
  layer_->peerReplies(NSError::errorWithDomain_code_userInfo(
      str("D"), 8,
      NSDictionary::dictionaryWithEntries(
          {{str("key"), KQIOObject::objectWithRegistryEntryID_name(1, nullptr)}})));
  EXPECT_TRUE(events_.waitFor("error 4101"));
  layer_->peerSendsReport(1);
  expectEvents({"error 4101", "report 1"});
}

TEST_P(ConnectionContract, NothingIsDeliveredAfterInvalidate) {
  const auto connection = makeLive();
  connection->invalidate();
  layer_->peerSendsReport(1);
  layer_->settle();
  EXPECT_TRUE(events_.waitFor("invalidation"));
  layer_->settle();
  expectEvents({"invalidation"});
}

TEST_P(ConnectionContract, AStaleNoticeDoesNotReachTheHolderOfANewerConnection) {
  const auto first = makeConnection("first ");
  first->resume();
  request(*first);
  ASSERT_TRUE(layer_->waitForRequest());
  layer_->peerReplies(nullptr);
  EXPECT_TRUE(events_.waitFor("reply (null)"));
  auto [held, released] = releaseNote();
  first->setInvalidationHandler(
      [this, held = std::exchange(held, nullptr)] { events_.record("first invalidation"); });
  // From a reply, so that the report about the first cannot come before the second is resumed.
  std::shared_ptr<NSXPCConnection> second;
  request(*first, [&] {
    first->invalidate();
    second = makeConnection("second ");
    second->resume();
    events_.record("resumed");
  });
  ASSERT_TRUE(layer_->waitForRequest());
  layer_->peerReplies(nullptr);
  EXPECT_TRUE(events_.waitFor("resumed"));
  layer_->settle();
  // Only then may the second end, or the report about the first would no longer be stale.
  ASSERT_EQ(released.wait_for(std::chrono::seconds(60)), std::future_status::ready);
  second->invalidate();
  layer_->settle();
  expectEvents({"reply (null)", "reply (null)", "resumed", "second invalidation"});
}

TEST_P(ConnectionContract, OfTwoLiveConnectionsOfOneObjectEachReportsItsEnd) {
  std::vector<std::shared_ptr<NSXPCConnection>> connections;
  for (const char* prefix : {"older ", "newer "}) {
    connections.push_back(makeConnection(prefix));
    connections.back()->resume();
    request(*connections.back());
    ASSERT_TRUE(layer_->waitForRequest());
    layer_->peerReplies(nullptr);
    EXPECT_TRUE(events_.waitFor("reply (null)"));
    events_.take();
  }
  connections.front()->invalidate();
  layer_->settle();
  EXPECT_TRUE(events_.waitFor("older invalidation"));
  layer_->peerSaysFarewell();
  EXPECT_TRUE(events_.waitFor("newer invalidation"));
  expectEvents({"older invalidation", "newer invalidation"});
}

INSTANTIATE_TEST_SUITE_P(Layers, ConnectionContract,
                         ::testing::Values(LayerKind{"real", &realLayer},
                                           LayerKind{"scripted", &scriptedLayer}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace test
