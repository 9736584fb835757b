// SPDX-License-Identifier: Apache-2.0

#include "jobd/EventLoop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <vector>

namespace jobd {

EventLoop::Token& EventLoop::Token::operator=(Token&& other) noexcept {
  if (this != &other) {
    end();
    loop_ = std::exchange(other.loop_, nullptr);
    id_ = other.id_;
  }
  return *this;
}

void EventLoop::Token::end() {
  if (auto* loop = std::exchange(loop_, nullptr)) loop->end(id_);
}

EventLoop::EventLoop() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) throw std::system_error(errno, std::generic_category(), "cannot wait for events");
}

EventLoop::Token EventLoop::watch(int descriptor, std::uint32_t events, Handler handler) {
  const std::uint64_t id = nextId_++;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot watch a descriptor");
  }
  entries_[id] = {descriptor, {}, std::make_shared<const Handler>(std::move(handler))};
  return {this, id};
}

EventLoop::Token EventLoop::after(std::chrono::milliseconds delay, Handler handler) {
  const std::uint64_t id = nextId_++;
  const auto due = Clock::now() + delay;
  entries_[id] = {-1, due, std::make_shared<const Handler>(std::move(handler))};
  timers_.emplace(due, id);
  return {this, id};
}

void EventLoop::end(std::uint64_t id) {
  const auto found = entries_.find(id);
  if (found == entries_.end()) return;
  const Entry entry = std::move(found->second);
  entries_.erase(found);
  if (entry.descriptor >= 0) {
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, entry.descriptor, nullptr);
    return;
  }
  const auto [first, last] = timers_.equal_range(entry.due);
  const auto timer =
      std::find_if(first, last, [id](const auto& each) { return each.second == id; });
  if (timer != last) timers_.erase(timer);
}

void EventLoop::call(std::uint64_t id) {
  const auto found = entries_.find(id);
  if (found == entries_.end()) return;  // ended by a handler of this iteration
  const auto handler = found->second.handler;
  (*handler)();
}

void EventLoop::runDueTimers() {
  const auto now = Clock::now();
  std::vector<std::uint64_t> due;
  for (auto timer = timers_.begin(); timer != timers_.end() && timer->first <= now; ++timer)
    due.push_back(timer->second);
  for (const auto id : due) {
    const auto found = entries_.find(id);
    if (found == entries_.end()) continue;
    const auto handler = found->second.handler;
    end(id);
    (*handler)();
  }
}

int EventLoop::millisecondsToNextTimer() const {
  if (timers_.empty()) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void EventLoop::run() {
  std::array<epoll_event, 32> events{};
  while (!stopped_) {
    const int ready = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()),
                                   millisecondsToNextTimer());
    if (ready < 0 && errno != EINTR)
      throw std::system_error(errno, std::generic_category(), "cannot wait for events");
    for (int i = 0; i < ready && !stopped_; ++i) call(events[static_cast<std::size_t>(i)].data.u64);
    if (!stopped_) runDueTimers();
  }
}

}  // namespace jobd
