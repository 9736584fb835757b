// SPDX-License-Identifier: Apache-2.0

#include "router/StartLine.h"

#include <algorithm>

namespace router {

void StartLine::begin() {
  thread_ = std::thread([this] { run(); });
}

void StartLine::end() {
  {
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    changed_.notify_all();
  }
  if (thread_.joinable()) thread_.join();
}

StartLine::Turn StartLine::askForTurn(uid_t user, Clock::time_point now, Wake wake,
                                      Ticket* returnTicket) {
  std::unique_lock lock(mutex_);
  const auto turn = quota_.reserve(user, now);
  if (!turn) return Turn::Never;
  if (turn->due() <= now) return Turn::Now;
  const std::uint64_t number = enterLocked({turn->due(), std::move(wake), turn});
  lock.unlock();
  *returnTicket = Ticket(shared_from_this(), number);
  return Turn::Later;
}

StartLine::Ticket StartLine::waitUntil(Clock::time_point time, Wake wake) {
  const std::lock_guard lock(mutex_);
  return {shared_from_this(), enterLocked({time, std::move(wake), std::nullopt})};
}

std::uint64_t StartLine::enterLocked(Waiting waiting) {
  line_.emplace(++latest_, std::move(waiting));
  changed_.notify_all();
  return latest_;
}

void StartLine::useTurn(std::uint64_t number) {
  const std::lock_guard lock(mutex_);
  line_.at(number).turn.reset();
}

void StartLine::leave(std::uint64_t number) {
  Line::node_type gone;  // to be destroyed without the lock
  const std::lock_guard lock(mutex_);
  const auto own = line_.find(number);
  const auto after = std::next(own);
  gone = line_.extract(own);
  if (const auto& turn = gone.mapped().turn) giveBackLocked(*turn, after);
}

/// Everyone after it moves up one turn; the last turn goes back to the quota.
void StartLine::giveBackLocked(TurnQuota::Turn turn, Line::iterator after) {
  for (; after != line_.end(); ++after) {
    Waiting& next = after->second;
    if (!next.turn) continue;
    std::swap(next.turn->ofAll, turn.ofAll);
    if (next.turn->user == turn.user) std::swap(next.turn->ofUser, turn.ofUser);
    next.due = next.turn->due();
  }
  quota_.giveBack(turn.user);
  changed_.notify_all();
}

std::vector<StartLine::Wake> StartLine::takeDue(Clock::time_point now) {
  std::vector<Wake> due;
  const std::lock_guard lock(mutex_);
  for (auto& [number, waiting] : line_) {
    if (waiting.wake && waiting.due <= now) due.push_back(std::exchange(waiting.wake, nullptr));
  }
  return due;
}

std::optional<StartLine::Clock::time_point> StartLine::nextLocked() const {
  std::optional<Clock::time_point> next;
  for (const auto& [number, waiting] : line_) {
    if (waiting.wake) next = std::min(next.value_or(waiting.due), waiting.due);
  }
  return next;
}

void StartLine::run() {
  std::unique_lock lock(mutex_);
  while (!hasEnded_) {
    const auto next = nextLocked();
    if (!next) {
      changed_.wait(lock);
    } else if (Clock::now() < *next) {
      changed_.wait_until(lock, *next);
    } else {
      lock.unlock();
      for (const Wake& wake : takeDue(Clock::now())) wake();
      lock.lock();
    }
  }
}

}  // namespace router
