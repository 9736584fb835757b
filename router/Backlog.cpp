// SPDX-License-Identifier: Apache-2.0

#include "router/Backlog.h"

namespace router {

std::shared_ptr<Backlog::Share> Backlog::share(uid_t user) {
  const std::lock_guard lock(mutex_);
  std::erase_if(users_, [](const auto& entry) { return entry.second.expired(); });
  auto& known = users_[user];
  auto ofUser = known.lock();
  if (!ofUser) ofUser = std::make_shared<Sum>();
  known = ofUser;
  return std::make_shared<Share>(shared_from_this(), std::move(ofUser));
}

/// Two threads may update a client's count concurrently: the last update wins, and the sums match
/// it.
void Backlog::Share::count(std::size_t unsent) {
  const std::size_t more = unsent - bytes_.exchange(unsent, std::memory_order_relaxed);
  ofUser_->bytes.fetch_add(more, std::memory_order_relaxed);  // a decrease wraps modulo 2^64
  backlog_->all_.bytes.fetch_add(more, std::memory_order_relaxed);
}

std::size_t Backlog::Share::limit(std::size_t unsent, std::size_t most) {
  const RouterLimits& limits = backlog_->limits_;
  count(unsent);
  return backlog_->all_.limit(ofUser_->limit(most, limits.backlogPerUser, limits.sessionsPerUser),
                              limits.backlog, limits.sessions);
}

}  // namespace router
