// SPDX-License-Identifier: Apache-2.0

#include "input/Loop.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using wlhid::Loop;

TEST(Loop, RunsPostedWorkInOrderOnAThreadOfItsOwn) {
  std::string log;
  std::promise<std::thread::id> done;
  Loop::shared().post([&] { log += "one "; });
  Loop::shared().post([] { throw std::runtime_error("on purpose"); });
  Loop::shared().post([&] {
    log += "two ";
    done.set_value(std::this_thread::get_id());
  });
  EXPECT_NE(done.get_future().get(), std::this_thread::get_id());
  EXPECT_EQ(log, "one two ");
}

TEST(Loop, TimersRunWhenTheyAreDueAndNotBefore) {
  std::string log;
  std::promise<Loop::Clock::time_point> done;
  const auto begun = Loop::Clock::now();
  Loop::shared().after(30ms, [&] { done.set_value(Loop::Clock::now()); });
  Loop::shared().after(10ms, [&] { log += "first "; });
  EXPECT_GE(done.get_future().get(), begun + 30ms);
  EXPECT_EQ(log, "first ");
}

TEST(Loop, ACanceledTimerDoesNotRun) {
  bool ran = false;
  std::promise<void> done;
  const auto timer = Loop::shared().after(20ms, [&] { ran = true; });
  Loop::shared().cancel(timer);
  Loop::shared().after(40ms, [&] { done.set_value(); });
  done.get_future().wait();
  EXPECT_FALSE(ran);
}

TEST(Loop, NoticesWhatIsReadableUntilItIsUnwatched) {
  const platform::FileDescriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  std::promise<void> noticed;
  Loop::shared().watch(event.get(), [&] {
    Loop::shared().unwatch(event.get());
    noticed.set_value();
  });
  ::eventfd_write(event.get(), 1);
  noticed.get_future().wait();
  std::promise<void> done;
  Loop::shared().post([&] { done.set_value(); });  // a second notice would throw
  done.get_future().wait();
}

}  // namespace
