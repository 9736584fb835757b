// SPDX-License-Identifier: Apache-2.0

#include "router/SessionRegistry.h"

#include <unistd.h>

#include <algorithm>
#include <random>
#include <utility>

#include "router/Session.h"

namespace router {

class SessionRegistry::Visit {
 public:
  explicit Visit(std::shared_ptr<SessionRegistry> registry) : registry_(std::move(registry)) {}
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;
  ~Visit() { registry_->leave(); }

 private:
  const std::shared_ptr<SessionRegistry> registry_;
};

void SessionRegistry::begin() {
  const std::lock_guard lock(mutex_);
  unusedSince_ = Clock::now();
}

bool SessionRegistry::stop() {
  const std::lock_guard lock(mutex_);
  if (std::exchange(isStopped_, true)) return false;
  isClosed_ = true;
  changed_.notify_all();
  return true;
}

std::size_t SessionRegistry::waitUntilEmpty(Clock::duration limit) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [this] { return sessions_.empty(); });
  return sessions_.size();
}

std::uint64_t SessionRegistry::takeNumber() {
  const std::lock_guard lock(mutex_);
  if (!isShared_) return ++latestNumber_;
  std::random_device random;
  std::uniform_int_distribution<std::uint64_t> numbers(1, 999'999);
  std::uint64_t number = numbers(random);
  while (isTakenLocked(number)) number = numbers(random);
  return number;
}

bool SessionRegistry::isTakenLocked(std::uint64_t number) const {
  return std::any_of(sessions_.begin(), sessions_.end(),
                     [=](const auto& each) { return each->number() == number; });
}

SessionRegistry::Entry SessionRegistry::keep(const std::shared_ptr<Session>& session) {
  const std::lock_guard lock(mutex_);
  if (isClosed_) return Entry::Closed;
  const auto ofUser = static_cast<std::size_t>(
      std::count_if(sessions_.begin(), sessions_.end(),
                    [&](const auto& each) { return each->user() == session->user(); }));
  if (ofUser >= limits_.sessionsPerUser) return Entry::TooManyOfUser;
  if (sessions_.size() >= limits_.sessions) return Entry::TooMany;
  sessions_.push_back(session);
  hasChange_ = true;
  changed_.notify_all();
  return Entry::Kept;
}

void SessionRegistry::remove(const std::shared_ptr<Session>& session) {
  const std::uint64_t lost = session->lost();
  const std::lock_guard lock(mutex_);
  if (std::erase(sessions_, session) == 0) return;
  if (lost != 0) lostByEnded_[session->user()] += lost;
  if (!isUsedLocked()) unusedSince_ = Clock::now();
  hasChange_ = true;
  changed_.notify_all();
}

SessionRegistry::Sessions SessionRegistry::all() const {
  const std::lock_guard lock(mutex_);
  return sessions_;
}

std::shared_ptr<Session> SessionRegistry::withNumber(std::uint64_t number) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(sessions_.begin(), sessions_.end(),
                                  [=](const auto& each) { return each->number() == number; });
  return found == sessions_.end() ? nullptr : *found;
}

std::shared_ptr<void> SessionRegistry::visit() {
  const std::lock_guard lock(mutex_);
  if (isClosed_) return nullptr;
  ++visitors_;
  return std::make_shared<Visit>(shared_from_this());
}

void SessionRegistry::leave() {
  const std::lock_guard lock(mutex_);
  --visitors_;
  if (!isUsedLocked()) unusedSince_ = Clock::now();
}

bool SessionRegistry::closeIfUnused(Clock::duration limit) {
  const std::lock_guard lock(mutex_);
  if (isClosed_ || isUsedLocked() || Clock::now() < unusedSince_ + limit) return false;
  isClosed_ = true;
  return true;
}

void SessionRegistry::noteChange() {
  const std::lock_guard lock(mutex_);
  hasChange_ = true;
  changed_.notify_all();
}

bool SessionRegistry::takeChange() {
  const std::lock_guard lock(mutex_);
  return std::exchange(hasChange_, false);
}

bool SessionRegistry::waitForChange(Clock::duration interval, Clock::duration unusedLimit) {
  std::unique_lock lock(mutex_);
  const auto isOver = [this] { return isStopped_ && sessions_.empty(); };
  const auto isAwaited = [&] { return hasChange_ || isOver(); };
  if (!isUsedLocked() && isClosed_)
    changed_.wait(lock, isAwaited);
  else
    changed_.wait_until(lock, isUsedLocked() ? Clock::now() + interval : unusedSince_ + unusedLimit,
                        isAwaited);
  return !isOver();
}

RouterStatus SessionRegistry::status(std::optional<uid_t> user) const {
  RouterStatus status;
  status.pid = ::getpid();
  status.version = WLHID_VERSION;
  Sessions sessions;
  {
    const std::lock_guard lock(mutex_);
    sessions = sessions_;
    for (const auto& [owner, lost] : lostByEnded_)
      if (!user || owner == *user) status.lost += lost;
  }
  for (const auto& session : sessions) {
    if (user && session->user() != *user) continue;
    std::uint64_t lostInAll = 0;
    status.sessions.push_back(session->status(&lostInAll));
    status.lost += lostInAll;
  }
  return status;
}

}  // namespace router
