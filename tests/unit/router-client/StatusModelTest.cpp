// SPDX-License-Identifier: Apache-2.0

// The status model and the policy: what each event does to status and connection.
#include "router-client/ClientLog.h"
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

class StatusModel : public ClientTest {
 protected:
  static std::size_t delegateCalls(const Lines& lines) {
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(),
                      [](const std::string& line) { return line.starts_with("delegate"); }));
  }
};

TEST_F(StatusModel, CurrentStatusIsComputedAfreshAndStoresNothing) {
  makeClient();
  platform_.uninstallHelper(kLabel);
  EXPECT_EQ(inside(*client_).currentEventRouterStatus(), WLHIDEventRouterStatusNotInstalled);
  EXPECT_EQ(client_->eventRouterStatus(), WLHIDEventRouterStatusInstalled);
  EXPECT_TRUE(sameTrace(sequence({currentStatus(), check(false)}), taken()));
}

TEST_F(StatusModel, StartingTwiceOnlyLogsTheSecondTime) {
  makeClient();
  client_->setStarted(true);
  taken();
  client_->setStarted(true);
  EXPECT_TRUE(sameTrace({"will change started", setStarted(true), "did change started"}, taken()));
}

TEST_F(StatusModel, StoppingAClientThatIsNotStartedOnlyLogs) {
  makeClient();
  client_->setStarted(false);
  EXPECT_TRUE(sameTrace({"will change started", setStarted(false), "did change started"}, taken()));
}

TEST_F(StatusModel, TheSameClientStatusMakesNoDelegateCall) {
  makeRoutingClient();
  client_->setClientStatus(WLHIDEventRouterClientStatusRouting);
  EXPECT_TRUE(sameTrace(staysAt(4), taken()));
}

TEST_F(StatusModel, AClientStatusOutsideTheFiveIsStoredAndAnnouncedLikeAnyOther) {
  makeClient();
  client_->setClientStatus(static_cast<WLHIDEventRouterClientStatus>(~std::uint64_t{0}));
  EXPECT_TRUE(sameTrace(
      {"will change clientStatus",
       logLine(0, "setClientStatus:]", 178, "called, newClientStatus = 18446744073709551615"),
       "delegate clientStatusChangedTo 18446744073709551615", "did change clientStatus"},
      taken()));
}

TEST_F(StatusModel, StartWhileNotInstalledThenInstallOpens) {
  platform_.uninstallHelper(kLabel);
  makeClient();
  client_->setStarted(true);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouterUnavailable);
  EXPECT_EQ(delegateCalls(taken()), 1U);
  platform_.installHelper(kLabel, "7");
  postStatusChange();
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
  EXPECT_EQ(platform_.connectionCount(), 1U);
}

TEST_F(StatusModel, StopAfterRoutingKeepsTheStatusAndCallsNoDelegate) {
  makeRoutingClient();
  client_->setStarted(false);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
  EXPECT_TRUE(connection1().isInvalidated());
  const Lines lines = taken();
  EXPECT_EQ(delegateCalls(lines), 0U);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), connection(1, "send stopRoutingService")), 1);
}

TEST_F(StatusModel, ANotificationWhileStoppedChangesOnlyTheRouterStatus) {
  makeClient();
  platform_.uninstallHelper(kLabel);
  postStatusChange();
  EXPECT_TRUE(sameTrace(
      sequence({posted(), currentStatus(), check(false), statusChanged(),
                "will change eventRouterStatus", update(false), "did change eventRouterStatus"}),
      taken()));
  EXPECT_EQ(client_->eventRouterStatus(), WLHIDEventRouterStatusNotInstalled);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusIdle);
}

TEST_F(StatusModel, ANotificationWithoutAChangeOnlyLogs) {
  makeRoutingClient();
  postStatusChange();
  EXPECT_TRUE(
      sameTrace(sequence({posted(), currentStatus(), check(true), statusChanged()}), taken()));
}

TEST_F(StatusModel, ANotificationFromAnySenderIsHeard) {
  makeClient();
  platform::NSNotificationCenter::defaultCenter()->postNotificationName_object(
      platform::str(WLHIDEventRouterClientInstallationStatusChanged), platform::str("somebody"));
  EXPECT_EQ(taken().size(),
            sequence({"post", currentStatus(), check(true), statusChanged()}).size());
}

TEST_F(StatusModel, AFailingOpenLeavesTheStatusAndCallsNoDelegate) {
  makeClient();
  platform_.setNextJobs({nullptr});
  client_->setStarted(true);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusIdle);
  EXPECT_EQ(delegateCalls(taken()), 0U);
  EXPECT_EQ(platform_.connectionCount(), 0U);
}

TEST_F(StatusModel, RemovalWhileRoutingClosesWithoutAStopRequest) {
  makeRoutingClient();
  platform_.uninstallHelper(kLabel);
  postStatusChange();
  EXPECT_TRUE(sameTrace(sequence({posted(), currentStatus(), check(false), statusChanged(),
                                  "will change eventRouterStatus", update(true), closing(1),
                                  becomes(1), "did change eventRouterStatus"}),
                        taken()));
}

TEST_F(StatusModel, UpdateWithASessionUnderWayDoesNothing) {
  makeRoutingClient();
  inside(*client_)._updateConnection();
  EXPECT_TRUE(sameTrace({update(true)}, taken()));
}

TEST_F(StatusModel, UpdateWhileStoppedAndWithoutConnectionDoesNothing) {
  makeClient();
  inside(*client_)._updateConnection();
  EXPECT_TRUE(sameTrace({update(false)}, taken()));
}

TEST_F(StatusModel, AFailedStartIsNotRetriedUntilStoppedAndStartedAgain) {
  makeClient();
  client_->setStarted(true);
  connection1().deliverReply(routerError(-1));
  ASSERT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusFailed);
  inside(*client_)._updateConnection();
  EXPECT_EQ(connection1().pendingRequests(), 0U);
  client_->setStarted(false);
  client_->setStarted(true);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
  EXPECT_EQ(platform_.connection(2)->pendingRequests(), 1U);
}

TEST_F(StatusModel, ADelegateWithoutTheMethodIsNotCalled) {
  class OnlyErrors final : public WLHIDEventRouterClientDelegate {
   public:
    void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>&,
                                          const std::shared_ptr<platform::NSError>&) override {
      ++errors;
    }
    int errors = 0;
  };
  makeClient();
  const auto delegate = std::make_shared<OnlyErrors>();
  client_->setDelegate(delegate);
  client_->setStarted(true);
  connection1().deliverReply(routerError(-5));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusFailed);
  EXPECT_EQ(delegate->errors, 1);
}

TEST_F(StatusModel, WhatALineSaysIsReadOnlyWhenTheLineIsWanted) {
  makeClient();
  int reads = 0;
  const auto argument = [&reads] {
    ++reads;
    return true;
  };
  platform_.setLogLevel(1);
  wlhid::log(wlhid::site::updateConnection, *client_, argument);
  EXPECT_EQ(reads, 0);
  platform_.setLogLevel(0);
  wlhid::log(wlhid::site::updateConnection, *client_, argument);
  EXPECT_EQ(reads, 1);
  EXPECT_TRUE(sameTrace({update(true)}, taken()));
}

}  // namespace
}  // namespace test
