// SPDX-License-Identifier: Apache-2.0

// What several threads may do with one client at the same time.
#include <atomic>
#include <condition_variable>
#include <future>
#include <thread>

#include "router-client/OpeningTurn.h"
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

TEST(OpeningTurn, OneThreadAloneNeverNoticesIt) {
  wlhid::OpeningTurn turn;
  turn.visit();
  ASSERT_TRUE(turn.enter());
  turn.visit();
  ASSERT_TRUE(turn.enter());
  EXPECT_FALSE(turn.leave());
  EXPECT_FALSE(turn.leave());
}

TEST(OpeningTurn, AVisitOfAnotherThreadIsNotedUntilTheOutermostEnd) {
  wlhid::OpeningTurn turn;
  ASSERT_TRUE(turn.enter());
  ASSERT_TRUE(turn.enter());
  std::thread([&turn] { turn.visit(); }).join();
  EXPECT_FALSE(turn.leave());
  EXPECT_TRUE(turn.leave());
  ASSERT_TRUE(turn.enter());
  EXPECT_FALSE(turn.leave());
}

TEST(OpeningTurn, AnotherThreadCannotEnterButLeavesANote) {
  wlhid::OpeningTurn turn;
  ASSERT_TRUE(turn.enter());
  std::thread([&turn] { EXPECT_FALSE(turn.enter()); }).join();
  EXPECT_TRUE(turn.leave());
  std::thread([&turn] {
    EXPECT_TRUE(turn.enter());
    EXPECT_FALSE(turn.leave());
  }).join();
}

class ConcurrentClient : public ClientTest {
 protected:
  void removeRouter() {
    platform_.uninstallHelper(kLabel);
    postStatusChange();
  }
  void putRouterBack() {
    platform_.installHelper(kLabel, "7");
    postStatusChange();
  }

  /// Runs `start` on a new thread and stops that thread at log line `line`; then runs `meanwhile`
  /// here and lets the thread finish.
  void holdAtLogLine(int line, const std::function<void()>& start,
                     const std::function<void()>& meanwhile) {
    Hold hold;
    auto& logger = platform::KQLogger::sharedLogger();
    const auto trace = &platform_.trace();
    const auto previous = logger.setSink(
        std::make_shared<platform::KQLogSink>([&, trace](const platform::KQLogEntry& entry) {
          trace->record(platform::describeLogEntry(entry));
          if (entry.sourceLine == line) hold.stopHere();
        }));
    runHeld(hold, start, meanwhile);
    logger.setSink(previous);
  }
  /// The same, but stops at the platform call that is recorded as `line` in the trace.
  void holdAtTraceLine(const std::string& line, const std::function<void()>& start,
                       const std::function<void()>& meanwhile) {
    Hold hold;
    platform_.trace().setWatcher([&](const std::string& recorded) {
      if (recorded == line) hold.stopHere();
    });
    runHeld(hold, start, meanwhile);
    platform_.trace().setWatcher(nullptr);
  }

  std::thread::id threadID_;

 private:
  /// A point at which a thread other than the test's stops, once.
  struct Hold {
    void stopHere() {
      if (std::this_thread::get_id() == home || isOver.exchange(true)) return;
      reached.set_value();
      released.get_future().wait();
    }
    const std::thread::id home = std::this_thread::get_id();
    std::atomic<bool> isOver{false};
    std::promise<void> reached;
    std::promise<void> released;
  };

  void runHeld(Hold& hold, const std::function<void()>& start,
               const std::function<void()>& meanwhile) {
    std::thread thread([&] {
      threadID_ = std::this_thread::get_id();
      start();
    });
    hold.reached.get_future().wait();
    meanwhile();
    hold.released.set_value();
    thread.join();
  }
};

TEST_F(ConcurrentClient, AStopDuringTheOpenIsCarriedOutByTheOpener) {
  makeClient();
  holdAtLogLine(
      194, [this] { client_->setStarted(true); }, [this] { client_->setStarted(false); });
  EXPECT_TRUE(
      sameTrace(sequence({"will change started", setStarted(true), update(true), openAndStart(1),
                          stopRequest(1), closing(1), "did change started"}),
                platform_.trace().linesOfThread(threadID_)));
  EXPECT_TRUE(
      sameTrace({"will change started", setStarted(false), update(false), "did change started"},
                platform_.trace().linesOfThread(std::this_thread::get_id())));
  EXPECT_EQ(inside(*client_).connection(), nullptr);
}

TEST_F(ConcurrentClient, AStopBeforeTheOpenBeginsIsSeen) {
  makeClient();
  holdAtLogLine(
      126, [this] { client_->setStarted(true); }, [this] { client_->setStarted(false); });
  EXPECT_EQ(platform_.connectionCount(), 0U);
}

TEST_F(ConcurrentClient, AStopAfterTheConnectionIsStoredClosesIt) {
  makeClient();
  holdAtLogLine(
      178, [this] { client_->setStarted(true); }, [this] { client_->setStarted(false); });
  EXPECT_EQ(inside(*client_).connection(), nullptr);
  EXPECT_TRUE(connection1().isInvalidated());
  EXPECT_EQ(connection1().pendingRequests(), 0U);
}

TEST_F(ConcurrentClient, ASecondThreadDoesNotOpenASecondConnection) {
  makeClient();
  holdAtLogLine(
      194, [this] { client_->setStarted(true); }, [this] { inside(*client_)._updateConnection(); });
  EXPECT_EQ(platform_.connectionCount(), 1U);
  EXPECT_EQ(connection1().pendingRequests(), 1U);
}

TEST_F(ConcurrentClient, ARemovalDuringTheOpenClosesAgain) {
  makeClient();
  holdAtLogLine(
      269, [this] { client_->setStarted(true); }, [this] { removeRouter(); });
  EXPECT_EQ(inside(*client_).connection(), nullptr);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouterUnavailable);
}

TEST_F(ConcurrentClient, AnOpenThatThrowsStillCarriesOutWhatOthersAskedForMeanwhile) {
  makeClient();
  delegate_->onStatus = [](const auto&, WLHIDEventRouterClientStatus) {
    throw std::runtime_error("from a delegate");
  };
  holdAtLogLine(
      194, [this] { EXPECT_THROW(client_->setStarted(true), std::runtime_error); },
      [this] { client_->setStarted(false); });
  EXPECT_EQ(inside(*client_).connection(), nullptr);
  EXPECT_TRUE(connection1().isInvalidated());
  // And the turn has ended.
  delegate_->onStatus = nullptr;
  client_->setStarted(true);
  EXPECT_EQ(platform_.connectionCount(), 2U);
}

TEST_F(ConcurrentClient, AReinstallationWhileARemovalClosesTheConnectionEndsConnected) {
  makeRoutingClient();
  holdAtTraceLine(
      "connection 1 invalidate", [this] { removeRouter(); }, [this] { putRouterBack(); });
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
  ASSERT_EQ(platform_.connectionCount(), 2U);
  EXPECT_EQ(inside(*client_).connection() == nullptr, false);
  EXPECT_EQ(platform_.connection(2)->pendingRequests(), 1U);
}

TEST_F(ConcurrentClient, TheStatusNeverSaysRouterUnavailableBesideALiveConnection) {
  makeRoutingClient();
  bool liar = false;
  delegate_->onStatus = [&](const auto& client, WLHIDEventRouterClientStatus status) {
    if (status == WLHIDEventRouterClientStatusRouterUnavailable)
      liar = liar || inside(*client).connection() != nullptr;
  };
  holdAtLogLine(
      178,  // the removal is about to set the status
      [this] { removeRouter(); }, [this] { putRouterBack(); });
  EXPECT_FALSE(liar);
  EXPECT_NE(inside(*client_).connection(), nullptr);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(ConcurrentClient, AReconnectWhileARemovalClosesTheOldConnectionIsNotDenied) {
  makeRoutingClient();
  holdAtTraceLine(
      "connection 1 invalidate", [this] { removeRouter(); },
      [this] {
        client_->setStarted(false);
        putRouterBack();
        client_->setStarted(true);
      });
  EXPECT_NE(inside(*client_).connection(), nullptr);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

TEST_F(ConcurrentClient, ARestartDuringTheOpenEndsConnected) {
  makeClient();
  holdAtLogLine(
      178, [this] { client_->setStarted(true); },
      [this] {
        client_->setStarted(false);
        client_->setStarted(true);
      });
  ASSERT_NE(inside(*client_).connection(), nullptr);
  EXPECT_EQ(platform_.connectionCount(), 2U);
  EXPECT_EQ(platform_.connection(2)->pendingRequests(), 1U);
}

TEST_F(ConcurrentClient, AConnectionThatIsStoredDuringACloseIsKept) {
  makeClient();
  client_->setStarted(true);
  holdAtTraceLine(
      "connection 1 invalidate", [this] { client_->setStarted(false); },
      [this] {
        client_->setStarted(true);  // finds the connection that is being closed
        client_->setStarted(false);
        client_->setStarted(true);
      });
  EXPECT_EQ(platform_.connectionCount(), 2U);
  EXPECT_NE(inside(*client_).connection(), nullptr);
  EXPECT_TRUE(platform_.connection(2)->isHeld());
  EXPECT_FALSE(platform_.connection(2)->isInvalidated());
}

TEST_F(ConcurrentClient, AnythingFromAnyThreadIsFreeOfRaces) {
  makeClient();
  platform_.setLogLevel(4);
  const auto other = std::make_shared<RecordingDelegate>(platform_.trace());
  std::vector<std::thread> threads;
  const auto repeat = [&threads](const std::function<void(int)>& action) {
    threads.emplace_back([action] {
      for (int i = 0; i < 300; ++i) action(i);
    });
  };
  repeat([this](int i) { client_->setStarted(i % 2 == 0); });
  repeat([this](int i) { client_->setStarted(i % 3 == 0); });
  repeat([this](int) { postStatusChange(); });
  repeat([this, &other](int i) { client_->setDelegate(i % 2 == 0 ? other : delegate_); });
  repeat([this](int) {
    inside(*client_).receivedData_forReportID(platform::NSData::dataWithBytes({}), 1);
  });
  repeat([this](int) { (void)client_->clientStatus(); });
  for (std::thread& thread : threads) thread.join();
  client_->setStarted(true);
  client_->setStarted(false);
  EXPECT_EQ(inside(*client_).connection(), nullptr);
  for (std::size_t i = 1; i <= platform_.connectionCount(); ++i) {
    const auto connection = platform_.connection(i);
    EXPECT_TRUE(connection->isInvalidated() || !connection->isHeld()) << i;
    while (connection->pendingRequests() > 0) connection->deliverError(nullptr);
  }
}

}  // namespace
}  // namespace test
