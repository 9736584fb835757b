// SPDX-License-Identifier: Apache-2.0

// Calls that others make on a connection's queue.
#include <unistd.h>

#include <future>

#include "tests/support/ThreadState.h"
#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

class CallOnQueue : public XPCTest {
 protected:
  /// Adds the line to the end's log, on its queue.
  static void note(End& end, const std::string& line) {
    end.connection->callOnQueue([&end, line] { end.log.add(line); });
  }
};

/// No event signals this.
bool fallsAsleep(pid_t thread) {
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (!stateOfThread(thread).isAsleep) {
    if (std::chrono::steady_clock::now() >= limit) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace

TEST_F(CallOnQueue, CallsComeInOrderOnTheThreadThatDelivers) {
  const auto end = connect();
  client_.proxy()->note(1);
  ASSERT_TRUE(end->log.waitFor("note 1"));
  for (int i = 0; i < 3; ++i) note(*end, "call " + std::to_string(i));
  ASSERT_TRUE(end->log.waitFor("call 2"));
  client_.proxy()->note(2);
  ASSERT_TRUE(end->log.waitFor("note 2"));
  EXPECT_EQ(end->log.lines(), Lines({"note 0", "note 1", "call 0", "call 1", "call 2", "note 2"}));
  EXPECT_EQ(end->log.threads().size(), 1U);
  EXPECT_FALSE(end->log.threads().contains(std::this_thread::get_id()));
}

TEST_F(CallOnQueue, ACallDoesNotComeInsideADelivery) {
  service_->prepare = [](End& end) {
    end.talker->onNote = [&end](std::uint64_t) {
      note(end, "call");
      end.log.add("delivered");
    };
  };
  const auto end = connect();
  ASSERT_TRUE(end->log.waitFor("call"));
  EXPECT_EQ(end->log.lines(), Lines({"note 0", "delivered", "call"}));
}

TEST_F(CallOnQueue, AConnectionThatIsNotResumedYetCallsLater) {
  note(client_, "call");
  EXPECT_EQ(client_.log.lines(), Lines());
  client_.connection->resume();
  EXPECT_TRUE(client_.log.waitFor("call"));
}

TEST_F(CallOnQueue, AnEndThatComesFirstDropsTheCallAndWhatItHolds) {
  const auto end = connect();
  std::promise<void> mayEnd;
  end->connection->callOnQueue([end = end.get(), mayEnd = mayEnd.get_future().share()] {
    end->log.add("held");
    mayEnd.wait();
  });
  ASSERT_TRUE(end->log.waitFor("held"));
  auto token = std::make_shared<int>();
  end->connection->callOnQueue([end = end.get(), token] { end->log.add("call"); });
  end->connection->invalidate();
  end->connection->callOnQueue([end = end.get(), token] { end->log.add("call"); });
  mayEnd.set_value();
  ASSERT_TRUE(end->log.waitFor("invalidation"));
  end->connection.reset();
  EXPECT_TRUE(waitUntilNoConnectionIsLeft());
  EXPECT_EQ(end->log.lines(), Lines({"note 0", "held", "invalidation"}));
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(CallOnQueue, ACallMayEndTheConnectionAndIsTheLastThen) {
  const auto end = connect();
  std::promise<void> mayRun;
  end->connection->callOnQueue([ready = mayRun.get_future().share()] { ready.wait(); });
  end->connection->callOnQueue([end = end.get()] { end->connection->invalidate(); });
  note(*end, "call");
  mayRun.set_value();
  ASSERT_TRUE(end->log.waitFor("invalidation"));
  EXPECT_EQ(end->log.lines(), Lines({"note 0", "invalidation"}));
}

TEST_F(CallOnQueue, ACallThatThrowsCostsOneLogLine) {
  const auto end = connect();
  end->connection->callOnQueue([] { throw std::runtime_error("no"); });
  note(*end, "call");
  ASSERT_TRUE(end->log.waitFor("call"));
  EXPECT_EQ(logged_.linesWith("a call on the queue threw: no"), 1U);
}

TEST_F(CallOnQueue, TheThreadSleepsAfterACall) {
  const auto end = connect();
  for (const End* const each : {&client_, end.get()}) {
    std::promise<pid_t> called;
    each->connection->callOnQueue([&called] { called.set_value(::gettid()); });
    EXPECT_TRUE(fallsAsleep(called.get_future().get()));
  }
}
