// SPDX-License-Identifier: Apache-2.0

#include "input/Strand.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ThreadState.h"

namespace {

using wlhid::Strand;

std::shared_ptr<Strand> newStrand() {
  return std::make_shared<Strand>();
}

TEST(Strand, ACallRunsOnTheThreadThatBringsIt) {
  const auto strand = newStrand();
  std::thread::id ran;
  strand->run([&] { ran = std::this_thread::get_id(); });
  EXPECT_EQ(ran, std::this_thread::get_id());
}

TEST(Strand, APostedCallRunsElsewhere) {
  const auto strand = newStrand();
  std::promise<std::thread::id> ran;
  strand->post([&] { ran.set_value(std::this_thread::get_id()); });
  EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
  strand->close();
}

TEST(Strand, CallsOfManyThreadsRunOneAtATimeAndEachInItsOrder) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 500;
  const auto strand = newStrand();
  std::atomic<int> running{0};
  bool overlapped = false;
  std::vector<std::vector<int>> order(kThreads);
  std::promise<void> all;
  int left = kThreads * kCalls;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kCalls; ++i) {
        const auto call = [&, t, i] {
          overlapped = overlapped || running.fetch_add(1) != 0;
          order[static_cast<std::size_t>(t)].push_back(i);
          running.fetch_sub(1);
          if (--left == 0) all.set_value();
        };
        t % 2 == 0 ? strand->run(call) : strand->post(call);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  all.get_future().wait();
  strand->close();
  EXPECT_FALSE(overlapped);
  for (const auto& each : order) EXPECT_TRUE(std::is_sorted(each.begin(), each.end()));
}

TEST(Strand, ACallFromWithinACallRunsAfterIt) {
  const auto strand = newStrand();
  std::string log;
  strand->run([&] {
    strand->run([&] { log += "inner "; });
    log += "outer ";
  });
  EXPECT_EQ(log, "outer inner ");
}

TEST(Strand, AfterTheCloseNothingBegins) {
  const auto strand = newStrand();
  std::string log;
  strand->run([&] {
    strand->run([&] { log += "late "; });
    strand->close();
    log += "closing ";
  });
  strand->run([&] { log += "later "; });
  strand->post([&] { log += "latest "; });
  EXPECT_EQ(log, "closing ");
}

TEST(Strand, TheCloseWaitsForACallOnAnotherThread) {
  const auto strand = newStrand();
  std::promise<void> begun;
  std::promise<void> mayEnd;
  std::atomic<bool> hasEnded{false};
  strand->post([&] {
    begun.set_value();
    mayEnd.get_future().wait();
    hasEnded = true;
  });
  begun.get_future().wait();
  std::thread closing([&] {
    strand->close();
    EXPECT_TRUE(hasEnded);
  });
  mayEnd.set_value();
  closing.join();
}

TEST(Strand, WhatACallHoldsMayBringAnotherAsItGoes) {
  const auto strand = newStrand();
  std::string log;
  const auto bring = [&](void*) { strand->run([&] { log += "last "; }); };
  strand->run([&, held = std::shared_ptr<void>(nullptr, bring)] { log += "first "; });
  EXPECT_EQ(log, "first last ");
}

TEST(Strand, WhatThrowsCostsOnlyItself) {
  const auto strand = newStrand();
  bool ran = false;
  strand->run([] { throw std::runtime_error("on purpose"); });
  strand->run([&] { ran = true; });
  EXPECT_TRUE(ran);
}

std::uint64_t sleepsOnceAsleep(pid_t thread) {
  testsupport::ThreadState state;
  while (!state.isAsleep) {
    std::this_thread::yield();
    state = testsupport::stateOfThread(thread);
  }
  return state.sleeps;
}

TEST(Strand, TheThreadOfWhatIsPostedSleepsThroughWhatIsRun) {
  const auto strand = newStrand();
  std::promise<pid_t> posted;
  strand->post([&] { posted.set_value(::gettid()); });
  const pid_t thread = posted.get_future().get();
  strand->run([] {});
  const std::uint64_t before = sleepsOnceAsleep(thread);
  for (int i = 0; i < 2000; ++i) strand->run([] {});
  EXPECT_EQ(sleepsOnceAsleep(thread), before);
  strand->close();
}

}  // namespace
