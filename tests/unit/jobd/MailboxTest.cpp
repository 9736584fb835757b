// SPDX-License-Identifier: Apache-2.0

#include "jobd/Mailbox.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

TEST(Mailbox, BringsWorkToTheLoopsThreadInOrder) {
  jobd::EventLoop loop;
  jobd::Mailbox mailbox(loop);
  std::vector<int> done;
  std::thread::id ranOn;
  std::thread other([&] {
    for (int i = 0; i < 100; ++i) mailbox.post([&done, i] { done.push_back(i); });
    mailbox.post([&] {
      ranOn = std::this_thread::get_id();
      loop.stop();
    });
  });
  loop.run();
  other.join();
  ASSERT_EQ(done.size(), 100U);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(done[static_cast<std::size_t>(i)], i);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(Mailbox, WorkMayPostMore) {
  jobd::EventLoop loop;
  jobd::Mailbox mailbox(loop);
  mailbox.post([&] { mailbox.post([&] { loop.stop(); }); });
  loop.run();
}

TEST(Mailbox, WhatIsLeftIsNeverRun) {
  jobd::EventLoop loop;
  bool hasRun = false;
  {
    jobd::Mailbox mailbox(loop);
    mailbox.post([&] { hasRun = true; });
  }
  const auto end = loop.after(std::chrono::milliseconds::zero(), [&] { loop.stop(); });
  loop.run();
  EXPECT_FALSE(hasRun);
}

}  // namespace
