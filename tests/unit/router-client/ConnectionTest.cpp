// SPDX-License-Identifier: Apache-2.0

// Opening and closing the connection, and what its handlers do.
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

class ClientConnection : public ClientTest {};

TEST_F(ClientConnection, OpenWhileNotInstalledGivesTheErrorAndLeavesTheConnection) {
  makeRoutingClient();
  const auto before = inside(*client_).connection();
  platform_.uninstallHelper(kLabel);
  const auto error = inside(*client_).openConnection();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain()->UTF8String(), "HIDEventRouterDomain");
  EXPECT_EQ(error->code(), -1);
  EXPECT_EQ(error->userInfo(), nullptr);
  EXPECT_EQ(inside(*client_).connection(), before);
  EXPECT_TRUE(sameTrace(sequence({called("openConnection", 194), check(false)}), taken()));
}

TEST_F(ClientConnection, OpenWithoutARemoteInterfaceGivesNothing) {
  makeClient();
  platform_.refuseInterface("WLHIDEventRouterProtocol");
  EXPECT_EQ(inside(*client_).openConnection(), nullptr);
  EXPECT_TRUE(sameTrace(sequence({called("openConnection", 194), check(true),
                                  "interfaceWithProtocol:WLHIDEventRouterProtocol -> nil"}),
                        taken()));
}

TEST_F(ClientConnection, OpenWithoutAnExportedInterfaceGivesNothing) {
  makeClient();
  platform_.refuseInterface("WLHIDEventRouterClientProtocol");
  EXPECT_EQ(inside(*client_).openConnection(), nullptr);
  EXPECT_TRUE(sameTrace(sequence({called("openConnection", 194), check(true),
                                  "interfaceWithProtocol:WLHIDEventRouterProtocol",
                                  "interfaceWithProtocol:WLHIDEventRouterClientProtocol -> nil"}),
                        taken()));
  EXPECT_EQ(inside(*client_).connection(), nullptr);
}

TEST_F(ClientConnection, AFailedCreationDropsWhatWasStored) {
  makeRoutingClient();
  platform_.refuseConnections();
  EXPECT_EQ(inside(*client_).openConnection(), nullptr);
  EXPECT_EQ(inside(*client_).connection(), nullptr);
  EXPECT_TRUE(sameTrace(
      sequence({called("openConnection", 194), check(true), interfaces(),
                "no connection initWithMachServiceName:com.quillmar.hideventrouter options:0",
                connection(1, "released")}),
      taken()));
}

TEST_F(ClientConnection, StartWithoutAConnectionGoesToOpeningAndSendsNothing) {
  makeClient();
  platform_.refuseConnections();
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace(
      sequence({"will change started", setStarted(true), update(true),
                called("openConnection", 194), check(true), interfaces(),
                "no connection initWithMachServiceName:com.quillmar.hideventrouter options:0",
                becomes(2), startRequestWithoutConnection(), "did change started"}),
      taken()));
}

TEST_F(ClientConnection, OpenReplacesAndReleasesWithoutInvalidating) {
  makeClient();
  inside(*client_).openConnection();
  taken();
  EXPECT_EQ(inside(*client_).openConnection(), nullptr);
  Lines expected = opening(2);
  const auto made =
      std::find(expected.begin(), expected.end(),
                connection(2, "initWithMachServiceName:com.quillmar.hideventrouter options:0"));
  expected.insert(made + 1, connection(1, "released"));
  EXPECT_TRUE(sameTrace(expected, taken()));
  EXPECT_FALSE(connection1().isInvalidated());
  EXPECT_FALSE(connection1().deliverInvalidation());
}

TEST_F(ClientConnection, CloseWithoutAConnectionOnlyLogs) {
  makeClient();
  inside(*client_).closeConnection();
  EXPECT_TRUE(sameTrace(closeWithoutConnection(), taken()));
}

TEST_F(ClientConnection, HandlersOfAClientThatIsGoneLogWithoutTagsAndMessageNothing) {
  makeClient();
  inside(*client_).openConnection();
  // Held longer than the client, as the layer does while an event is pending.
  const auto held = inside(*client_).connection();
  releaseClient();
  taken();
  connection1().deliverInterruption(platform::ScriptedConnection::Timing::Late);
  EXPECT_TRUE(sameTrace({interruption("no tags")}, taken()));
  EXPECT_TRUE(connection1().deliverInvalidation());
  EXPECT_TRUE(sameTrace({invalidation("no tags")}, taken()));
}

TEST_F(ClientConnection, HandlersDoNotKeepTheClient) {
  makeRoutingClient();
  const std::weak_ptr<WLHIDEventRouterClient> weak = client_;
  releaseClient();
  EXPECT_TRUE(weak.expired());
}

TEST_F(ClientConnection, InvalidationWhileStoppedClosesAndStopsThere) {
  makeClient();
  inside(*client_).openConnection();
  taken();
  connection1().deliverInvalidation();
  EXPECT_TRUE(sameTrace(sequence({invalidation(), called("handleInvalidation", 255), closing(1)}),
                        taken()));
}

TEST_F(ClientConnection, InterruptionTakesItsThreeStepsWhateverStartedIs) {
  makeClient();
  inside(*client_).openConnection();
  taken();
  connection1().deliverInterruption();
  // Not started, so the policy that the interruption applies stops and closes.
  EXPECT_TRUE(sameTrace(
      sequence({interruption(), called("handleInterruption", 246), stopRequest(1), currentStatus(),
                check(true), statusChanged(), update(false), stopRequest(1), closing(1)}),
      taken()));
}

TEST_F(ClientConnection, InterruptionWithoutAConnectionDoesNoHarm) {
  makeClient();
  inside(*client_).handleInterruption();
  EXPECT_TRUE(
      sameTrace(sequence({called("handleInterruption", 246), called("stopListeningToService", 300),
                          currentStatus(), check(true), statusChanged(), update(false)}),
                taken()));
}

TEST_F(ClientConnection, TheOwnInvalidateReportsBackToAClientStartedAgainWithoutAConnection) {
  makeRoutingClient();
  client_->setStarted(false);
  platform_.setNextJobs({nullptr});
  client_->setStarted(true);  // the open fails: started, yet no connection
  taken();
  connection1().deliverInvalidation();
  EXPECT_TRUE(sameTrace(
      sequence({invalidation(), called("handleInvalidation", 255), closeWithoutConnection(),
                currentStatus(), check(true), statusChanged(), update(true), openAndStart(2)}),
      taken()));
}

}  // namespace
}  // namespace test
