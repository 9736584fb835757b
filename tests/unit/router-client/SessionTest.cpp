// SPDX-License-Identifier: Apache-2.0

// The start and stop requests and their outcomes.
#include "tests/support/ErrorText.h"
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

class RoutingSession : public ClientTest {
 protected:
  void startAndDropTrace() {
    makeClient();
    client_->setStarted(true);
    taken();
  }
};

TEST_F(RoutingSession, ASuccessfulReplyMakesOneDelegateCall) {
  startAndDropTrace();
  connection1().deliverReply(nullptr);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
  const Lines lines = taken();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "delegate clientStatusChangedTo 4"), 1);
  EXPECT_EQ(delegate_->lastError, nullptr);
}

TEST_F(RoutingSession, TheErrorReachesTheDelegateAsTheSameObject) {
  startAndDropTrace();
  const auto error = routerError(-7);
  connection1().deliverReply(error);
  EXPECT_EQ(delegate_->lastError, error);
}

TEST_F(RoutingSession, TheHintDependsOnTheCodeAloneAndNotOnTheDomain) {
  startAndDropTrace();
  connection1().deliverReply(routerError(-536870174, "Another"));
  const std::string text = "Error Domain=Another Code=-536870174 \"(null)\"";
  EXPECT_TRUE(sameTrace(sequence({openReply(text), notPermittedHint(text), becomes(3),
                                  "delegate handleError " + text}),
                        taken()));
}

TEST_F(RoutingSession, TheUnsignedReadingOfTheCodeGetsNoHint) {
  startAndDropTrace();
  connection1().deliverReply(routerError(3758097122));
  const std::string text = "Error Domain=HIDEventRouterDomain Code=3758097122 \"(null)\"";
  EXPECT_TRUE(
      sameTrace(sequence({openReply(text), becomes(3), "delegate handleError " + text}), taken()));
}

TEST_F(RoutingSession, AFailureWithTheStatusAlreadyFailedOnlyReportsTheError) {
  startAndDropTrace();
  client_->setClientStatus(WLHIDEventRouterClientStatusFailed);
  taken();
  connection1().deliverReply(routerError(-7));
  const std::string text = "Error Domain=HIDEventRouterDomain Code=-7 \"(null)\"";
  EXPECT_TRUE(
      sameTrace(sequence({openReply(text), staysAt(3), "delegate handleError " + text}), taken()));
}

TEST_F(RoutingSession, AFailureWithoutADelegateOnlySetsTheStatus) {
  startAndDropTrace();
  client_->setDelegate(nullptr);
  connection1().deliverReply(routerError(-7));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusFailed);
  EXPECT_TRUE(sameTrace(
      sequence({openReply("Error Domain=HIDEventRouterDomain Code=-7 \"(null)\""), staysAt(3)}),
      taken()));
}

TEST_F(RoutingSession, AFailureWithADelegateThatTakesNoErrorsCallsNothingElse) {
  class OnlyStatus final : public WLHIDEventRouterClientDelegate {
   public:
    void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                    WLHIDEventRouterClientStatus status) override {
      last = status;
    }
    WLHIDEventRouterClientStatus last = WLHIDEventRouterClientStatusIdle;
  };
  startAndDropTrace();
  const auto delegate = std::make_shared<OnlyStatus>();
  client_->setDelegate(delegate);
  connection1().deliverReply(routerError(-7));
  EXPECT_EQ(delegate->last, WLHIDEventRouterClientStatusFailed);
}

TEST_F(RoutingSession, ADelegateThatGoesAwayInItsStatusCallbackHearsNoError) {
  startAndDropTrace();
  delegate_->onStatus = [this](const auto&, WLHIDEventRouterClientStatus) { delegate_.reset(); };
  connection1().deliverReply(routerError(-7));
  const Lines lines = taken();
  EXPECT_EQ(lines.back(), "did change clientStatus");
}

TEST_F(RoutingSession, AnErrorInsteadOfAReplyIsLoggedAndChangesNothing) {
  startAndDropTrace();
  connection1().deliverError(routerError(4097, platform::NSCocoaErrorDomain));
  EXPECT_TRUE(sameTrace({startError(testsupport::errorText("NSCocoaErrorDomain", 4097))}, taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(RoutingSession, ErrorLinesPassUpToLevelThree) {
  for (const std::uint64_t level : {0U, 1U, 2U, 3U, 4U}) {
    startAndDropTrace();
    platform_.setLogLevel(level);
    const auto connection = platform_.connection(platform_.connectionCount());
    connection->deliverError(routerError(1));
    EXPECT_EQ(taken().size(), level < 4 ? 1U : 0U) << level;
    inside(*client_).stopListeningToService();
    taken();
    connection->deliverOneWayError(routerError(2));
    EXPECT_EQ(taken().size(), level < 4 ? 1U : 0U) << level;
    platform_.setLogLevel(0);
  }
}

TEST_F(RoutingSession, AFailedStopIsLoggedAndChangesNothing) {
  makeRoutingClient();
  client_->setStarted(false);
  taken();
  connection1().deliverOneWayError(routerError(4099, platform::NSCocoaErrorDomain));
  EXPECT_TRUE(sameTrace({stopError(testsupport::errorText("NSCocoaErrorDomain", 4099))}, taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
}

TEST_F(RoutingSession, ErrorHandlersOfAClientThatIsGoneLogWithoutTags) {
  makeRoutingClient();
  inside(*client_).stopListeningToService();
  releaseClient();
  taken();
  connection1().deliverOneWayError(routerError(1));
  EXPECT_TRUE(sameTrace(
      {stopError("Error Domain=HIDEventRouterDomain Code=1 \"(null)\"", "no tags")}, taken()));
}

TEST_F(RoutingSession, StopNeverChangesTheStatus) {
  makeRoutingClient();
  inside(*client_).stopListeningToService();
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
  EXPECT_TRUE(sameTrace(stopRequest(1), taken()));
}

TEST_F(RoutingSession, WithoutAConnectionBothRequestsOnlyLog) {
  makeClient();
  inside(*client_).startListeningToService();
  inside(*client_).stopListeningToService();
  EXPECT_TRUE(sameTrace(
      {called("startListeningToService", 269), called("stopListeningToService", 300)}, taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusIdle);
}

TEST_F(RoutingSession, APendingRequestKeepsTheClientUntilItsReplyHasInformedTheDelegate) {
  startAndDropTrace();
  const std::weak_ptr<WLHIDEventRouterClient> weak = client_;
  releaseClient();
  EXPECT_FALSE(weak.expired());
  connection1().deliverReply(routerError(-7));
  EXPECT_TRUE(weak.expired());
  EXPECT_NE(delegate_->lastError, nullptr);
}

TEST_F(RoutingSession, APendingRequestKeepsTheClientUntilItsErrorHandlerHasRun) {
  startAndDropTrace();
  const std::weak_ptr<WLHIDEventRouterClient> weak = client_;
  releaseClient();
  connection1().deliverError(routerError(4099));
  EXPECT_TRUE(weak.expired());
}

TEST_F(RoutingSession, TheLevelIsReadAfreshForEachLine) {
  startAndDropTrace();
  // Raised between the reply's own line and the setter's.
  auto& logger = platform::KQLogger::sharedLogger();
  std::vector<int> seen;
  const auto previous = logger.setSink(
      std::make_shared<platform::KQLogSink>([&seen](const platform::KQLogEntry& entry) {
        seen.push_back(entry.sourceLine);
        platform::KQLogger::setLogLevel(1);
      }));
  connection1().deliverReply(routerError(-536870174));
  logger.setSink(previous);
  EXPECT_EQ(seen, (std::vector<int>{273, 283}));
}

}  // namespace
}  // namespace test
