// SPDX-License-Identifier: Apache-2.0

// Whole scenarios, each as the full ordered trace that it leaves: log lines, platform calls,
// observed changes, delegate calls.
#include "tests/support/ErrorText.h"
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

using platform::str;

class ClientScenario : public ClientTest {
 protected:
  static inline const std::string kInterrupted = testsupport::errorText("NSCocoaErrorDomain", 4097);
  static inline const std::string kInvalid = testsupport::errorText("NSCocoaErrorDomain", 4099);

  static Lines starting(std::initializer_list<Piece> pieces) {
    return sequence({"will change started", setStarted(true), update(true), sequence(pieces),
                     "did change started"});
  }
  static Lines stopping(int connection) {
    return sequence({"will change started", setStarted(false), update(false),
                     stopRequest(connection), closing(connection), "did change started"});
  }
  /// The status is read again and has not changed.
  static Lines rereadUnchanged(bool installed) {
    return sequence({currentStatus(), check(installed), statusChanged()});
  }
  /// The status is read again and differs; `pieces` is what the change triggers.
  static Lines rereadChanged(bool installed, std::initializer_list<Piece> pieces) {
    return sequence({currentStatus(), check(installed), statusChanged(),
                     "will change eventRouterStatus", sequence(pieces),
                     "did change eventRouterStatus"});
  }
  static Lines authorization() {
    return {
        "AuthorizationCreate(rights={com.apple.ServiceManagement.blesshelper length=0 value=null "
        "flags=0}, "
        "environment={prompt length=5 value=Sure? flags=0}, flags=19) -> 0"};
  }
  WLHIDEventRouterClient::CompletionHandler recordingHandler() {
    return [this](bool success, const std::shared_ptr<platform::NSError>& error) {
      platform_.trace().record("handler " + std::to_string(success) + " " +
                               platform::descriptionOf(error));
    };
  }
};

TEST_F(ClientScenario, CreationWhileInstalled) {
  client_ = newClient();
  EXPECT_TRUE(sameTrace(creation(true), taken()));
}

TEST_F(ClientScenario, CreationWhileNotInstalled) {
  platform_.uninstallHelper(kLabel);
  client_ = newClient();
  EXPECT_TRUE(sameTrace(creation(false), taken()));
}

TEST_F(ClientScenario, StartWhileInstalled) {
  makeClient();
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace(starting({openAndStart(1)}), taken()));
}

TEST_F(ClientScenario, StartWhileNotInstalled) {
  platform_.uninstallHelper(kLabel);
  makeClient();
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace(starting({becomes(1)}), taken()));
}

TEST_F(ClientScenario, StartWithTheRouterGoneBeforeTheConnectionIsOpened) {
  makeClient();
  platform_.setNextJobs({nullptr});
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace(starting({called("openConnection", 194), notInstalledCheck()}), taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusIdle);
}

TEST_F(ClientScenario, StartReplyWithoutError) {
  makeClient();
  client_->setStarted(true);
  taken();
  connection1().deliverReply(nullptr);
  EXPECT_TRUE(sameTrace(sequence({openReply("(null)"), becomes(4)}), taken()));
}

TEST_F(ClientScenario, StartReplyWithAnError) {
  makeClient();
  client_->setStarted(true);
  taken();
  connection1().deliverReply(routerError(-536870211));
  const std::string text = "Error Domain=HIDEventRouterDomain Code=-536870211 \"(null)\"";
  EXPECT_TRUE(
      sameTrace(sequence({openReply(text), becomes(3), "delegate handleError " + text}), taken()));
}

/// What a refused start leaves in the trace at each log level, in order.
struct LevelCase {
  std::uint64_t level;
  bool reply;
  bool hint;
};
class ClientScenarioAtLevel : public ClientScenario,
                              public ::testing::WithParamInterface<LevelCase> {};

TEST_P(ClientScenarioAtLevel, StartReplyNotPermitted) {
  makeClient();
  client_->setStarted(true);
  taken();
  platform_.setLogLevel(GetParam().level);
  connection1().deliverReply(routerError(-536870174));
  const std::string text = testsupport::errorText("HIDEventRouterDomain", -536870174);
  Lines expected;
  if (GetParam().reply) expected.push_back(openReply(text));
  if (GetParam().hint) expected.push_back(notPermittedHint(text));
  expected.emplace_back("will change clientStatus");
  if (GetParam().level == 0) expected.push_back(setClientStatus(3));
  expected.insert(expected.end(), {"delegate clientStatusChangedTo 3", "did change clientStatus",
                                   "delegate handleError " + text});
  EXPECT_TRUE(sameTrace(expected, taken()));
}

TEST_P(ClientScenarioAtLevel, StartReplyWithoutError) {
  makeClient();
  client_->setStarted(true);
  taken();
  platform_.setLogLevel(GetParam().level);
  connection1().deliverReply(nullptr);
  Lines expected;
  if (GetParam().reply) expected.push_back(openReply("(null)"));
  expected.emplace_back("will change clientStatus");
  if (GetParam().level == 0) expected.push_back(setClientStatus(4));
  expected.insert(expected.end(), {"delegate clientStatusChangedTo 4", "did change clientStatus"});
  EXPECT_TRUE(sameTrace(expected, taken()));
}

TEST_P(ClientScenarioAtLevel, InterruptionAndInvalidationOfAStoppedClient) {
  makeRoutingClient();
  client_->setStarted(false);
  taken();
  const std::uint64_t level = GetParam().level;
  platform_.setLogLevel(level);
  connection1().deliverInvalidation();
  Lines expected;
  if (level < 3) expected.push_back(invalidation());
  if (level == 0)
    expected.insert(expected.end(),
                    {called("handleInvalidation", 255), called("closeConnection", 239)});
  EXPECT_TRUE(sameTrace(expected, taken()));
}

INSTANTIATE_TEST_SUITE_P(Levels, ClientScenarioAtLevel,
                         ::testing::Values(LevelCase{0, true, true}, LevelCase{1, false, true},
                                           LevelCase{2, false, true}, LevelCase{3, false, true},
                                           LevelCase{4, false, false},
                                           LevelCase{~std::uint64_t{0}, false, false}),
                         [](const auto& info) {
                           return info.param.level > 4 ? std::string("highest")
                                                       : std::to_string(info.param.level);
                         });

TEST_F(ClientScenario, StopWhileRoutingAndTheInvalidationThatFollows) {
  makeRoutingClient();
  client_->setStarted(false);
  EXPECT_TRUE(sameTrace(stopping(1), taken()));
  EXPECT_TRUE(connection1().deliverInvalidation());
  EXPECT_TRUE(sameTrace(
      sequence({invalidation(), called("handleInvalidation", 255), closeWithoutConnection()}),
      taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
}

TEST_F(ClientScenario, InvalidationWhileStartedWithTheRouterStillThere) {
  makeRoutingClient();
  connection1().deliverInvalidation();
  EXPECT_TRUE(sameTrace(sequence({invalidation(), called("handleInvalidation", 255), closing(1),
                                  rereadUnchanged(true), update(true), openAndStart(2)}),
                        taken()));
}

TEST_F(ClientScenario, InvalidationWhileStartedWithTheRouterGone) {
  makeRoutingClient();
  platform_.uninstallHelper(kLabel);
  connection1().deliverInvalidation();
  EXPECT_TRUE(sameTrace(
      sequence({invalidation(), called("handleInvalidation", 255), closing(1),
                rereadChanged(false, {update(true), becomes(1)}), update(true), staysAt(1)}),
      taken()));
}

TEST_F(ClientScenario, InterruptionWithTheRouterStillThere) {
  makeRoutingClient();
  connection1().deliverInterruption();
  EXPECT_TRUE(sameTrace(sequence({interruption(), called("handleInterruption", 246), stopRequest(1),
                                  rereadUnchanged(true), update(true)}),
                        taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
}

TEST_F(ClientScenario, InterruptionWithTheRouterGone) {
  makeRoutingClient();
  platform_.uninstallHelper(kLabel);
  connection1().deliverInterruption();
  EXPECT_TRUE(sameTrace(sequence({interruption(), called("handleInterruption", 246), stopRequest(1),
                                  rereadChanged(false, {update(true), closing(1), becomes(1)}),
                                  update(true), staysAt(1)}),
                        taken()));
}

TEST_F(ClientScenario, InterruptionWhileTheStartRequestIsPending) {
  makeClient();
  client_->setStarted(true);
  taken();
  connection1().deliverInterruption();
  EXPECT_TRUE(sameTrace(
      sequence({startError(kInterrupted), interruption(), called("handleInterruption", 246),
                stopRequest(1), rereadUnchanged(true), update(true)}),
      taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(ClientScenario, InvalidationWhileTheStartRequestIsPending) {
  makeClient();
  client_->setStarted(true);
  taken();
  connection1().deliverInvalidation();
  EXPECT_TRUE(sameTrace(
      sequence({startError(kInvalid), invalidation(), called("handleInvalidation", 255), closing(1),
                rereadUnchanged(true), update(true), opening(2), staysAt(2), startRequest(2)}),
      taken()));
}

TEST_F(ClientScenario, UninstallWhileRouting) {
  makeRoutingClient();
  platform_.setRemoval([this] {
    platform_.uninstallHelper(kLabel);
    return platform::ScriptedOutcome{true, nullptr};
  });
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(str("Sure?"), recordingHandler());
  EXPECT_TRUE(sameTrace(sequence({authorization(), check(true),
                                  "SMJobRemove(kSMDomainSystemLaunchd, "
                                  "com.quillmar.hideventrouter, authorization 1, wait=true)",
                                  "handler 1 (null)", posted(),
                                  rereadChanged(false, {update(true), closing(1), becomes(1)})}),
                        taken()));
}

TEST_F(ClientScenario, InstallAfterStart) {
  platform_.uninstallHelper(kLabel);
  makeClient();
  client_->setStarted(true);
  taken();
  platform_.setBless([this] {
    platform_.installHelper(kLabel, "7");
    return platform::ScriptedOutcome{true, nullptr};
  });
  WLHIDEventRouterClient::installWithPrompt_completionHandler(str("Sure?"), recordingHandler());
  EXPECT_TRUE(sameTrace(
      sequence({authorization(), check(false),
                "SMJobBless(kSMDomainSystemLaunchd, com.quillmar.hideventrouter, authorization 1)",
                "handler 1 (null)", posted(),
                rereadChanged(true, {update(true), openAndStart(1)})}),
      taken()));
}

TEST_F(ClientScenario, ADelegateThatStopsTheClientFromItsStatusCallback) {
  makeClient();
  delegate_->onStatus = [](const auto& client, WLHIDEventRouterClientStatus status) {
    if (status == WLHIDEventRouterClientStatusOpening) client->setStarted(false);
  };
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace(starting({opening(1), "will change clientStatus", setClientStatus(2),
                                  "delegate clientStatusChangedTo 2", stopping(1),
                                  "did change clientStatus", startRequestWithoutConnection()}),
                        taken()));
  EXPECT_FALSE(client_->started());
}

TEST_F(ClientScenario, ADelegateThatRestartsTheClientFromItsStatusCallback) {
  makeClient();
  bool restarted = false;
  delegate_->onStatus = [&restarted](const auto& client, WLHIDEventRouterClientStatus) {
    if (std::exchange(restarted, true)) return;
    client->setStarted(false);
    client->setStarted(true);
  };
  client_->setStarted(true);
  // The inner start sets no new status and sends its request; then the outer one sends its own, on
  // the same connection.
  EXPECT_TRUE(sameTrace(starting({opening(1), "will change clientStatus", setClientStatus(2),
                                  "delegate clientStatusChangedTo 2", stopping(1),
                                  starting({opening(2), staysAt(2), startRequest(2)}),
                                  "did change clientStatus", startRequest(2)}),
                        taken()));
}

TEST_F(ClientScenario, AnObserverThatStopsTheClientBeforeTheStatusIsStored) {
  makeClient();
  const auto observation =
      client_->addObserver_forKey("clientStatus", [this](const platform::KeyValueChange& change) {
        if (change.prior && client_->started()) client_->setStarted(false);
      });
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace(starting({opening(1), "will change clientStatus", stopping(1),
                                  setClientStatus(2), "delegate clientStatusChangedTo 2",
                                  "did change clientStatus", startRequestWithoutConnection()}),
                        taken()));
}

TEST_F(ClientScenario, ReleaseWhileRouting) {
  makeRoutingClient();
  releaseClient();
  EXPECT_TRUE(sameTrace(sequence({dealloc(), closing(1), removeObserver()}), taken()));
  EXPECT_TRUE(connection1().deliverInvalidation());
  EXPECT_TRUE(sameTrace({invalidation("no tags")}, taken()));
}

TEST_F(ClientScenario, ReleaseOfAClientThatNeverStarted) {
  makeClient();
  releaseClient();
  EXPECT_TRUE(
      sameTrace(sequence({dealloc(), closeWithoutConnection(), removeObserver()}), taken()));
}

TEST_F(ClientScenario, ReleaseWithTheStartRequestPending) {
  makeClient();
  client_->setStarted(true);
  taken();
  releaseClient();
  EXPECT_TRUE(sameTrace({}, taken()));
  connection1().deliverReply(nullptr);
  EXPECT_TRUE(sameTrace(
      sequence({openReply("(null)"), setClientStatus(4), "delegate clientStatusChangedTo 4",
                dealloc(), closing(1), removeObserver()}),
      taken()));
}

TEST_F(ClientScenario, ReleaseWithTheStartRequestPendingAndItsFailure) {
  makeClient();
  client_->setStarted(true);
  taken();
  releaseClient();
  connection1().deliverError(routerError(4097, platform::NSCocoaErrorDomain));
  EXPECT_TRUE(sameTrace(
      sequence({startError(kInterrupted), dealloc(), closing(1), removeObserver()}), taken()));
}

TEST_F(ClientScenario, AReplyThatArrivesAfterTheStop) {
  makeClient();
  client_->setStarted(true);
  client_->setStarted(false);
  taken();
  connection1().deliverReply(nullptr, platform::ScriptedConnection::Timing::Late);
  EXPECT_TRUE(sameTrace(sequence({openReply("(null)"), becomes(4)}), taken()));
  EXPECT_FALSE(client_->started());
}

TEST_F(ClientScenario, StopWithTheStartRequestPendingAndTheInvalidationThatFollows) {
  makeClient();
  client_->setStarted(true);
  taken();
  client_->setStarted(false);
  EXPECT_TRUE(sameTrace(stopping(1), taken()));
  connection1().deliverInvalidation();
  EXPECT_TRUE(sameTrace(sequence({startError(kInvalid), invalidation(),
                                  called("handleInvalidation", 255), closeWithoutConnection()}),
                        taken()));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(ClientScenario, QuickStopAndStart) {
  makeRoutingClient();
  client_->setStarted(false);
  taken();
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace(starting({openAndStart(2)}), taken()));
  // The layer keeps the report about the first connection from a client that has a newer one.
  EXPECT_FALSE(connection1().deliverInvalidation());
  EXPECT_TRUE(sameTrace({}, taken()));
}

}  // namespace
}  // namespace test
