// SPDX-License-Identifier: Apache-2.0

#include "input/Loop.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <exception>
#include <string>
#include <thread>
#include <utility>

#include "platform/foundation/NSLog.h"
#include "platform/foundation/PrintableText.h"

namespace wlhid {

namespace {

void runOne(const Loop::Work& work) try { work(); } catch (const std::exception& error) {
  platform::NSLogString(
      platform::printableLine("wlhid: a callback threw: " + std::string(error.what())));
}

}  // namespace

Loop& Loop::shared() {
  static auto* const loop = new Loop;
  return *loop;
}

Loop::Loop() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  std::thread([this] { run(); }).detach();
}

void Loop::wake() const {
  ::eventfd_write(wake_.get(), 1);
}

void Loop::post(Work work) {
  {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(work));
  }
  wake();
}

Loop::Timer Loop::after(Clock::duration delay, Work work) {
  Timer timer = 0;
  {
    const std::lock_guard lock(mutex_);
    timer = ++latest_;
    timers_.emplace(Clock::now() + delay, std::pair(timer, std::move(work)));
  }
  wake();
  return timer;
}

void Loop::cancel(Timer timer) {
  Work dropped;  // without the lock
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(timers_.begin(), timers_.end(),
                                  [=](const auto& each) { return each.second.first == timer; });
  if (found == timers_.end()) return;
  dropped = std::move(found->second.second);
  timers_.erase(found);
}

void Loop::watch(int descriptor, Work readable) {
  {
    const std::lock_guard lock(mutex_);
    watched_[descriptor] = std::move(readable);
  }
  wake();
}

void Loop::unwatch(int descriptor) {
  Work dropped;  // without the lock
  const std::lock_guard lock(mutex_);
  const auto found = watched_.find(descriptor);
  if (found == watched_.end()) return;
  dropped = std::move(found->second);
  watched_.erase(found);
}

void Loop::run() {
  for (;;) {
    waitForWork();
    for (const Work& work : takeDue()) runOne(work);
  }
}

void Loop::waitForWork() {
  std::vector<pollfd> polls{{wake_.get(), POLLIN, 0}};
  int limit = -1;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [descriptor, work] : watched_) polls.push_back({descriptor, POLLIN, 0});
    if (!posted_.empty()) {
      limit = 0;
    } else if (!timers_.empty()) {
      using std::chrono::milliseconds;
      const auto left = timers_.begin()->first - Clock::now();
      const auto rounded = std::chrono::ceil<milliseconds>(left).count();
      limit = static_cast<int>(std::clamp<std::int64_t>(rounded, 0, 3'600'000));
    }
  }
  ::poll(polls.data(), polls.size(), limit);
  eventfd_t count = 0;
  ::eventfd_read(wake_.get(), &count);
  readable_.clear();
  for (std::size_t i = 1; i < polls.size(); ++i)
    if (polls[i].revents != 0) readable_.push_back(polls[i].fd);
}

std::vector<Loop::Work> Loop::takeDue() {
  const std::lock_guard lock(mutex_);
  std::vector<Work> due = std::exchange(posted_, {});
  for (const int descriptor : readable_) {
    const auto found = watched_.find(descriptor);
    if (found != watched_.end()) due.push_back(found->second);
  }
  const auto end = timers_.upper_bound(Clock::now());
  for (auto timer = timers_.begin(); timer != end; timer = timers_.erase(timer))
    due.push_back(std::move(timer->second.second));
  return due;
}

}  // namespace wlhid
