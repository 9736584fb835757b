// SPDX-License-Identifier: Apache-2.0

// The client's scenarios over real sockets: what each thread sees, in its own order.
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "tests/integration/router-client/RealLayerFixture.h"
#include "tests/support/ErrorText.h"

namespace test {
namespace {

using namespace platform;

std::shared_ptr<NSError> routerError(std::int64_t code,
                                     const std::shared_ptr<NSDictionary>& userInfo = nullptr) {
  return NSError::errorWithDomain_code_userInfo(str(HIDEventRouterDomain), code, userInfo);
}

std::shared_ptr<NSData> bytes(std::initializer_list<std::uint8_t> list) {
  return NSData::dataWithBytes({list.begin(), list.size()});
}

class ClientOnRealLayer : public RealLayerTest {
 protected:
  static Lines status(int value, const std::string& call = "") {
    Lines lines{setClientStatus(value)};
    if (!call.empty()) lines.push_back(call);
    return lines;
  }
  static Lines changesTo(int value) {
    return status(value, "delegate clientStatusChangedTo " + std::to_string(value));
  }
  /// The start request's error handler; the text after the code is up to the connection layer.
  static std::string failedStart(int code) {
    return startError("Error Domain=NSCocoaErrorDomain Code=" + std::to_string(code));
  }
  static Lines openAndStart() {
    return sequence({called("openConnection", 194), check(true), changesTo(2),
                     called("startListeningToService", 269)});
  }
  static Lines reread(bool installed) {
    return sequence({currentStatus(), check(installed), statusChanged()});
  }
  std::shared_ptr<RouterSession> onlySession() {
    const auto sessions = routing();
    EXPECT_EQ(sessions.size(), 1U);
    return sessions.at(0);
  }
};

TEST_F(ClientOnRealLayer, StartsAndIsAnswered) {
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(trace().waitFor("delegate clientStatusChangedTo 4"));
  queue_ = delegate_->lastStatusThread;
  EXPECT_NE(queue_, std::this_thread::get_id());
  EXPECT_TRUE(sameTrace(sequence({setStarted(true), update(true), openAndStart()}), here()));
  EXPECT_TRUE(sameTrace(sequence({openReply("(null)"), changesTo(4)}), onQueue()));
  EXPECT_EQ(onlySession()->starts, 1);
  EXPECT_EQ(answers().entryID(), kEntryID);
  EXPECT_TRUE(answers().tags()->isEqual(tags_));
}

TEST_F(ClientOnRealLayer, StopsAndHearsOfItsOwnInvalidation) {
  makeRoutingClient();
  const auto session = onlySession();
  client_->setStarted(false);
  EXPECT_TRUE(sameTrace({setStarted(false), update(false), called("stopListeningToService", 300),
                         called("closeConnection", 239)},
                        here()));
  ASSERT_TRUE(trace().waitFor(called("closeConnection", 239), 2));
  EXPECT_TRUE(
      sameTrace({invalidation(), called("handleInvalidation", 255), called("closeConnection", 239)},
                onQueue()));
  ASSERT_TRUE(router().waitUntilEnded(session, kPatience));
  EXPECT_EQ(session->stops, 1);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
}

TEST_F(ClientOnRealLayer, ARefusedStartFailsWithTheHint) {
  answers().setAnswer(routerError(-536870174));
  makeClient();
  client_->setStarted(true);
  const std::string text = testsupport::errorText("HIDEventRouterDomain", -536870174);
  ASSERT_TRUE(trace().waitFor("delegate handleError " + text));
  queue_ = delegate_->lastStatusThread;
  EXPECT_TRUE(sameTrace(sequence({openReply(text), notPermittedHint(text), changesTo(3),
                                  "delegate handleError " + text}),
                        onQueue()));
}

TEST_F(ClientOnRealLayer, AnErrorArrivesWithAllThatItMayCarry) {
  const auto inner = NSArray::arrayWithObjects(
      {str("text"), NSNumber::numberWithLongLong(-5), bytes({1, 2}),
       NSDate::dateWithTimeIntervalSinceReferenceDate(12.5),
       NSURL::URLWithString(str("file:///dev/hidraw0")),
       KQIOObject::objectWithRegistryEntryID_name(kEntryID, str("Keyboard")), routerError(-3)});
  const auto error =
      routerError(-9, NSDictionary::dictionaryWithEntries({{str("details"), inner}}));
  answers().setAnswer(error);
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(trace().waitFor("delegate handleError " + error->description()));
  EXPECT_TRUE(delegate_->lastError->isEqual(error));
}

TEST_F(ClientOnRealLayer, AnErrorThatCarriesAnotherClassIsNotAdmitted) {
  const auto value = KQHIDDeviceElementValue::elementValue({1, 2, 3, 4, 5, {}});
  answers().setAnswer(
      routerError(-9, NSDictionary::dictionaryWithEntries({{str("value"), value}})));
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(trace().waitForPrefix(failedStart(4101)));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
  EXPECT_EQ(delegate_->lastError, nullptr);
}

TEST_F(ClientOnRealLayer, ReportsArriveInOrderAndWhole) {
  makeRoutingClient();
  const auto session = onlySession();
  constexpr std::uint32_t count = 1000;
  Lines expected;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto data = bytes({static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i >> 8)});
    expected.push_back("delegate receivedReportData " + data->description() + " " +
                       std::to_string(i));
    session->client->receivedData_forReportID(data, i);
  }
  ASSERT_TRUE(trace().waitFor(expected.back()));
  EXPECT_TRUE(sameTrace(expected, onQueue()));
}

TEST_F(ClientOnRealLayer, ElementValuesArriveEqual) {
  makeRoutingClient();
  const std::uint8_t field[] = {0x34, 0x12};
  const HIDElementValueRecord records[] = {{1, 1, 48, 7, -4660, field},
                                           {1, 9, 2, 0x1'0000'0001, INT64_MIN, {}}};
  const auto sent = elementValueArray(records);
  onlySession()->client->receivedElementValues(sent);
  ASSERT_TRUE(trace().waitFor("delegate receivedElementValues 2"));
  EXPECT_TRUE(delegate_->lastElementValues->isEqual(sent));
  EXPECT_EQ(&delegate_->lastElementValues->isa(), &NSMutableArray::classObject());
}

TEST_F(ClientOnRealLayer, ADictionaryOfAnySizeAndWithAnyKeysReachesTheRouterUnchanged) {
  std::vector<NSDictionary::Entry> entries{
      {NSArray::arrayWithObjects({str("an"), str("array")}), str("as a key")}};
  for (std::uint64_t number = 0; number < 5000; ++number)
    entries.emplace_back(NSNumber::numberWithUnsignedLongLong(number), str("tag"));
  tags_ = NSDictionary::dictionaryWithEntries(std::move(entries));
  makeRoutingClient();
  EXPECT_EQ(answers().tags()->count(), 5001U);
  EXPECT_TRUE(answers().tags()->isEqual(tags_));
}

TEST_F(ClientOnRealLayer, AnArrayWithAnotherClassInItNeverArrivesAndTheConnectionLives) {
  makeRoutingClient();
  const auto session = onlySession();
  session->client->receivedElementValues(
      NSMutableArray::arrayWithObjects({str("no element value")}));
  const auto value = KQHIDDeviceElementValue::elementValue({});
  session->client->receivedElementValues(
      NSMutableArray::arrayWithObjects({NSMutableArray::arrayWithObjects({value}), value}));
  session->client->receivedData_forReportID(bytes({1}), 1);
  ASSERT_TRUE(trace().waitFor("delegate receivedReportData {length = 1, bytes = 0x01} 1"));
  EXPECT_EQ(delegate_->lastElementValues, nullptr);
}

TEST_F(ClientOnRealLayer, AFarewellOfTheRouterIsFollowedByANewConnection) {
  makeRoutingClient();
  router().invalidateSessions();
  ASSERT_TRUE(trace().waitFor("delegate clientStatusChangedTo 4"));
  EXPECT_TRUE(sameTrace(
      sequence({invalidation(), called("handleInvalidation", 255), called("closeConnection", 239),
                reread(true), update(true), openAndStart()}),
      onQueue()));
  EXPECT_NE(delegate_->lastStatusThread.load(), queue_);
  EXPECT_TRUE(sameTrace(sequence({openReply("(null)"), changesTo(4)}),
                        trace().linesOfThread(delegate_->lastStatusThread)));
}

TEST_F(ClientOnRealLayer, AFarewellOfARemovedRouterMakesItUnavailable) {
  makeRoutingClient();
  platform_.uninstallHelper(kLabel);
  router().invalidateSessions();
  ASSERT_TRUE(trace().waitFor(setClientStatus(1), 2));
  EXPECT_TRUE(sameTrace(
      sequence({invalidation(), called("handleInvalidation", 255), called("closeConnection", 239),
                reread(false), update(true), changesTo(1), update(true), status(1)}),
      onQueue()));
}

TEST_F(ClientOnRealLayer, ARouterThatCrashesLeavesTheStatusAndTheConnection) {
  makeRoutingClient();
  router().dropSessions();
  ASSERT_TRUE(trace().waitFor(update(true)));
  EXPECT_TRUE(
      sameTrace(sequence({interruption(), called("handleInterruption", 246),
                          called("stopListeningToService", 300), reread(true), update(true)}),
                onQueue()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
}

TEST_F(ClientOnRealLayer, ARouterThatCrashesAndIsRemovedMakesItUnavailable) {
  makeRoutingClient();
  platform_.uninstallHelper(kLabel);
  router().dropSessions();
  ASSERT_TRUE(trace().waitFor(setClientStatus(1), 2));
  const Lines lines = onQueue();
  const Lines expected =
      sequence({interruption(), called("handleInterruption", 246),
                called("stopListeningToService", 300), reread(false), update(true),
                called("closeConnection", 239), changesTo(1), update(true), status(1)});
  EXPECT_TRUE(sameTrace(
      expected, Lines(lines.begin(), lines.begin() + std::min(lines.size(), expected.size()))));
}

TEST_F(ClientOnRealLayer, ACrashWhileTheStartIsPendingEndsInTheErrorHandlerFirst) {
  answers().setHoldReplies(true);
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(answers().waitForHeldReply());
  trace().take();
  router().dropSessions();
  ASSERT_TRUE(trace().waitFor(update(true)));
  const Lines lines = trace().take();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_TRUE(lines[0].starts_with(failedStart(4097))) << lines[0];
  EXPECT_EQ(lines[1], interruption());
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(ClientOnRealLayer, AReplyThatTheRouterDropsIsAnError) {
  answers().setHoldReplies(true);
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(answers().waitForHeldReply());
  answers().takeHeldReplies();
  ASSERT_TRUE(trace().waitForPrefix(failedStart(4101)));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(ClientOnRealLayer, ReleaseWhileRoutingClosesAndLeavesTheHandlerHarmless) {
  makeRoutingClient();
  const auto session = onlySession();
  ASSERT_TRUE(waitUntilOnlyOursHolds());
  trace().take();
  client_.reset();
  EXPECT_TRUE(
      sameTrace(sequence({dealloc(), called("closeConnection", 239), removeObserver()}), here()));
  ASSERT_TRUE(trace().waitFor(invalidation("no tags")));
  EXPECT_TRUE(sameTrace({invalidation("no tags")}, onQueue()));
  ASSERT_TRUE(router().waitUntilEnded(session, kPatience));
  EXPECT_EQ(session->stops, 0);
}

TEST_F(ClientOnRealLayer, ReleaseWithTheStartPendingWaitsForTheReply) {
  answers().setHoldReplies(true);
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(answers().waitForHeldReply());
  trace().take();
  client_.reset();
  EXPECT_TRUE(sameTrace({}, here()));
  for (const auto& reply : answers().takeHeldReplies()) reply(nullptr);
  ASSERT_TRUE(trace().waitFor(invalidation("no tags")));
  queue_ = delegate_->lastStatusThread;
  EXPECT_TRUE(sameTrace(
      sequence({openReply("(null)"), changesTo(4), dealloc(), called("closeConnection", 239),
                removeObserver(), invalidation("no tags")}),
      onQueue()));
}

TEST_F(ClientOnRealLayer, ReleaseWithTheStartPendingAndTheRouterGone) {
  answers().setHoldReplies(true);
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(answers().waitForHeldReply());
  client_.reset();
  router().invalidateSessions();
  ASSERT_TRUE(trace().waitFor(dealloc()));
}

TEST_F(ClientOnRealLayer, AReplyThatArrivesAfterTheStopIsAnErrorInstead) {
  answers().setHoldReplies(true);
  makeClient();
  client_->setStarted(true);
  ASSERT_TRUE(answers().waitForHeldReply());
  trace().take();
  client_->setStarted(false);
  ASSERT_TRUE(trace().waitFor(called("closeConnection", 239), 2));
  for (const auto& reply : answers().takeHeldReplies()) reply(nullptr);
  const Lines lines = trace().take();
  const auto position = [&lines](const std::string& line) {
    return std::find(lines.begin(), lines.end(), line);
  };
  const auto failed = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.starts_with(failedStart(4099));
  });
  ASSERT_NE(failed, lines.end()) << traceDiff({}, lines);
  EXPECT_LT(failed, position(invalidation()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(ClientOnRealLayer, ADelegateMayReleaseTheClientOnTheQueue) {
  makeClient();
  delegate_->onStatus = [this](const auto&, WLHIDEventRouterClientStatus status) {
    if (status == WLHIDEventRouterClientStatusRouting) client_.reset();
  };
  client_->setStarted(true);
  EXPECT_TRUE(trace().waitFor(removeObserver().at(0)));
}

TEST_F(ClientOnRealLayer, ADelegateMayStopTheClientOnTheQueue) {
  makeClient();
  delegate_->onStatus = [](const auto& client, WLHIDEventRouterClientStatus status) {
    if (status == WLHIDEventRouterClientStatusRouting) client->setStarted(false);
  };
  client_->setStarted(true);
  EXPECT_TRUE(trace().waitFor(called("handleInvalidation", 255)));
  EXPECT_FALSE(client_->started());
}

}  // namespace
}  // namespace test
