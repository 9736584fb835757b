// SPDX-License-Identifier: Apache-2.0

#include "router/StopSignal.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <thread>

namespace {

using router::StopSignal;
using Clock = std::chrono::steady_clock;

bool isReadable(const StopSignal& signal) {
  pollfd poll{signal.descriptor(), POLLIN, 0};
  return ::poll(&poll, 1, 0) == 1;
}

TEST(StopSignal, IsReadableFromTheMomentThatItIsRaised) {
  StopSignal signal;
  EXPECT_FALSE(signal.isRaised());
  EXPECT_FALSE(isReadable(signal));
  for (int i = 0; i < 2; ++i) {
    signal.raise();
    EXPECT_TRUE(signal.isRaised());
    EXPECT_TRUE(isReadable(signal));
  }
}

TEST(StopSignal, AWaitEndsAtItsDeadline) {
  const StopSignal signal;
  EXPECT_FALSE(signal.waitUntil(Clock::now() - std::chrono::hours(1)));
  const auto deadline = Clock::now() + std::chrono::milliseconds(2);
  EXPECT_FALSE(signal.waitUntil(deadline));
  EXPECT_GE(Clock::now(), deadline) << "it returned too early";
}

TEST(StopSignal, ARaisedOneIsNotWaitedFor) {
  StopSignal signal;
  signal.raise();
  EXPECT_TRUE(signal.waitUntil(Clock::now() - std::chrono::hours(1)));
  EXPECT_TRUE(signal.waitUntil(Clock::time_point::max()));
}

TEST(StopSignal, RaisingEndsEveryWait) {
  StopSignal signal;
  std::atomic<int> ended{0};
  std::vector<std::thread> waiting;
  for (int i = 0; i < 3; ++i) {
    waiting.emplace_back([&] {
      if (signal.waitUntil(Clock::now() + std::chrono::hours(3))) ++ended;
    });
  }
  signal.raise();
  for (std::thread& thread : waiting) thread.join();
  EXPECT_EQ(ended, 3);
}

}  // namespace
