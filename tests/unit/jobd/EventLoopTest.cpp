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

}  // namespace
