// SPDX-License-Identifier: Apache-2.0

#include "jobd/EventLoop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace {

using jobd::EventLoop;
using std::chrono::milliseconds;

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    out.reset(ends[0]);
    in.reset(ends[1]);
  }
  void fill() const { EXPECT_EQ(::write(in.get(), "x", 1), 1); }
  void empty() const {
    char c = 0;
    EXPECT_EQ(::read(out.get(), &c, 1), 1);
  }
  platform::FileDescriptor out;
  platform::FileDescriptor in;
};

TEST(EventLoop, TimersRunInOrderOfTheirTime) {
  EventLoop loop;
  std::string order;
  const auto second = loop.after(milliseconds(20), [&] { order += "2"; });
  const auto first = loop.after(milliseconds(0), [&] { order += "1"; });
  const auto last = loop.after(milliseconds(40), [&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(order, "12");
}

TEST(EventLoop, AWatchRunsForEachEvent) {
  EventLoop loop;
  const Pipe pipe;
  int runs = 0;
  pipe.fill();
  const auto watch = loop.watch(pipe.out.get(), EPOLLIN, [&] {
    pipe.empty();
    if (++runs == 3)
      loop.stop();
    else
      pipe.fill();
  });
  loop.run();
  EXPECT_EQ(runs, 3);
}

TEST(EventLoop, AHandlerMayEndItselfAndOthers) {
  EventLoop loop;
  const Pipe one;
  const Pipe two;
  one.fill();
  two.fill();
  int runs = 0;
  std::array<EventLoop::Token, 2> watches;
  const auto endBoth = [&] {
    ++runs;
    watches[0].end();
    watches[1].end();
  };
  watches[0] = loop.watch(one.out.get(), EPOLLIN, endBoth);
  watches[1] = loop.watch(two.out.get(), EPOLLIN, endBoth);
  const auto stop = loop.after(milliseconds(30), [&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(runs, 1);
}

TEST(EventLoop, AnEndedTimerDoesNotRun) {
  EventLoop loop;
  bool ran = false;
  auto timer = loop.after(milliseconds(0), [&] { ran = true; });
  timer.end();
  const auto stop = loop.after(milliseconds(10), [&] { loop.stop(); });
  loop.run();
  EXPECT_FALSE(ran);
}

TEST(EventLoop, ATimerMayBeReplacedInItsOwnHandler) {
  EventLoop loop;
  int runs = 0;
  EventLoop::Token timer;
  std::function<void()> again = [&] {
    if (++runs == 3)
      loop.stop();
    else
      timer = loop.after(milliseconds(0), again);
  };
  timer = loop.after(milliseconds(0), again);
  loop.run();
  EXPECT_EQ(runs, 3);
}

TEST(EventLoop, AnImpossibleWatchThrows) {
  EventLoop loop;
  EXPECT_THROW((void)loop.watch(-1, EPOLLIN, [] {}), std::system_error);
}

TEST(EventLoop, ATimerRunsOnce) {
  EventLoop loop;
  int runs = 0;
  const auto timer = loop.after(milliseconds(0), [&] { ++runs; });
  const auto stop = loop.after(milliseconds(20), [&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(runs, 1);
}

TEST(EventLoop, ATimerMayEndOthersThatAreDueWithIt) {
  EventLoop loop;
  std::string ran;
  EventLoop::Token second;
  const auto first = loop.after(milliseconds(0), [&] {
    ran += "1";
    second.end();
  });
  second = loop.after(milliseconds(0), [&] { ran += "2"; });
  const auto stop = loop.after(milliseconds(20), [&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(ran, "1");
}

TEST(EventLoop, TimersOfOneMomentAreEndedOneByOne) {
  EventLoop loop;
  std::string ran;
  std::vector<EventLoop::Token> timers;
  for (int i = 0; i < 5; ++i)
    timers.push_back(loop.after(milliseconds(0), [&ran, i] { ran += std::to_string(i); }));
  timers[1].end();
  timers[3].end();
  const auto stop = loop.after(milliseconds(20), [&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(ran, "024");
}

TEST(EventLoop, NothingOfATurnRunsAfterItWasStopped) {
  EventLoop loop;
  const Pipe one;
  const Pipe two;
  one.fill();
  two.fill();
  int runs = 0;
  const auto stop = [&] {
    ++runs;
    loop.stop();
  };
  const auto first = loop.watch(one.out.get(), EPOLLIN, stop);
  const auto second = loop.watch(two.out.get(), EPOLLIN, stop);
  const auto timer = loop.after(milliseconds(0), stop);
  loop.run();
  EXPECT_EQ(runs, 1);
}

TEST(EventLoop, AnEndedWatchIsTakenOutOfTheKernelsToo) {
  EventLoop loop;
  const Pipe pipe;
  for (int i = 0; i < 2; ++i) {
    auto watch = loop.watch(pipe.out.get(), EPOLLIN, [] {});
    EXPECT_TRUE(watch);
    watch.end();
    EXPECT_FALSE(watch);
    watch.end();
  }
}

TEST(EventLoop, TheFirstDescriptorOfAProcessCanBeWatchedToo) {
  const platform::FileDescriptor kept(::fcntl(0, F_DUPFD_CLOEXEC, 3));
  const Pipe pipe;
  ASSERT_EQ(::dup2(pipe.out.get(), 0), 0);
  EventLoop loop;
  loop.watch(0, EPOLLIN, [] {}).end();
  EXPECT_NO_THROW(loop.watch(0, EPOLLIN, [] {}).end());
  if (kept) ::dup2(kept.get(), 0);
}

TEST(EventLoop, ATokenMovesWithItsWatch) {
  EventLoop loop;
  std::string ran;
  auto first = loop.after(milliseconds(0), [&] { ran += "1"; });
  auto second = loop.after(milliseconds(0), [&] { ran += "2"; });
  first = std::move(second);  // ends the first
  EXPECT_TRUE(first);
  EventLoop::Token& same = first;
  first = std::move(same);
  EXPECT_TRUE(first);
  const EventLoop::Token last(std::move(first));
  EXPECT_TRUE(last);
  const auto stop = loop.after(milliseconds(20), [&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(ran, "2");
}

TEST(EventLoop, MoreThanATurnHoldsAreAllServed) {
  EventLoop loop;
  std::vector<Pipe> pipes(100);
  std::vector<EventLoop::Token> watches;
  std::size_t served = 0;
  for (const auto& pipe : pipes) {
    pipe.fill();
    watches.push_back(loop.watch(pipe.out.get(), EPOLLIN, [&] {
      pipe.empty();
      if (++served == pipes.size()) loop.stop();
    }));
  }
  loop.run();
  EXPECT_EQ(served, pipes.size());
}

}  // namespace
