// SPDX-License-Identifier: Apache-2.0

// Rapid stops and starts end in the last requested state, and nothing is left behind.
#include <random>

#include "tests/integration/router-client/RealLayerFixture.h"

namespace test {
namespace {

class Toggles : public RealLayerTest {
 protected:
  Toggles() { platform_.setLogLevel(4); }

  /// The client should be started: exactly one session is left, and what its router sends arrives.
  void expectOneLiveSession() {
    const auto arrived = [this] {
      for (const auto& session : routing())
        session->client->receivedData_forReportID(platform::NSData::dataWithBytes({}), 77);
      return trace().waitFor("delegate receivedReportData {length = 0, bytes = 0x} 77", 1,
                             std::chrono::seconds(1));
    };
    bool delivered = false;
    for (int attempt = 0; attempt < kPatience.count() && !delivered; ++attempt)
      delivered = arrived();
    EXPECT_TRUE(delivered);
    EXPECT_TRUE(waitFor([this] { return routing().size() == 1; }));
    EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
  }
  void expectNoSession() {
    EXPECT_TRUE(waitFor([this] { return routing().empty(); }));
    EXPECT_TRUE(waitUntilNoConnectionIsLeft());
  }

  static bool waitFor(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      std::this_thread::yield();
    }
    return true;
  }
  static void toggle(WLHIDEventRouterClient& client, int times, unsigned seed) {
    std::mt19937 random(seed);
    for (int i = 0; i < times; ++i) client.setStarted((random() & 1) != 0);
  }
};

TEST_F(Toggles, TenThousandFromOneThreadSettleInTheLastWish) {
  makeClient();
  for (unsigned round = 0; round < 10; ++round) {
    toggle(*client_, 1000, round);
    if (round % 2 == 0) {
      client_->setStarted(true);
      expectOneLiveSession();
    } else {
      client_->setStarted(false);
      expectNoSession();
    }
    trace().take();
  }
}

TEST_F(Toggles, FromSeveralThreadsSettleInTheLastWish) {
  makeClient();
  for (unsigned round = 0; round < 4; ++round) {
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < 3; ++thread) {
      threads.emplace_back([this, round, thread] { toggle(*client_, 300, round * 7 + thread); });
    }
    for (std::thread& thread : threads) thread.join();
    client_->setStarted(true);
    expectOneLiveSession();
    client_->setStarted(false);
    expectNoSession();
    trace().take();
  }
}

TEST_F(Toggles, WithARouterThatKeepsLeaving) {
  makeClient();
  std::atomic<bool> over{false};
  std::thread leaver([this, &over] {
    while (!over) {
      router().invalidateSessions();
      std::this_thread::yield();
    }
  });
  toggle(*client_, 300, 1);
  over = true;
  leaver.join();
  client_->setStarted(false);
  client_->setStarted(true);
  expectOneLiveSession();
}

TEST_F(Toggles, ReleaseInEveryState) {
  for (int i = 0; i < 200; ++i) {
    answers().setHoldReplies(i % 3 == 0);
    const auto client = newClient();
    const auto delegate = std::make_shared<RecordingDelegate>(trace());
    client->setDelegate(delegate);
    toggle(*client, i % 5, static_cast<unsigned>(i));
    if (i % 2 == 0) client->setStarted(true);
    if (i % 7 == 0) router().dropSessions();
    answers().takeHeldReplies();
  }
  router().dropSessions();
  answers().takeHeldReplies();
  EXPECT_TRUE(waitUntilNoConnectionIsLeft());
}

}  // namespace
}  // namespace test
