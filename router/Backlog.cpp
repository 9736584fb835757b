#include "router/Backlog.h"

namespace router {

std::shared_ptr<Backlog::Share> Backlog::share(uid_t user) {
  return std::make_shared<Share>(shared_from_this(), user);
}

Backlog::Share::Share(std::shared_ptr<Backlog> backlog, uid_t user)
    : backlog_(std::move(backlog)), user_(user) {
  const std::lock_guard lock(backlog_->mutex_);
  ++backlog_->users_[user_].shares;
}

Backlog::Share::~Share() {
  const std::lock_guard lock(backlog_->mutex_);
  const auto own = backlog_->users_.find(user_);
  for (Sum* sum : {&backlog_->all_, &own->second}) sum->bytes -= bytes_;
  if (--own->second.shares == 0) backlog_->users_.erase(own);
}

std::size_t Backlog::Share::limit(std::size_t unsent, std::size_t most) {
  const RouterLimits& limits = backlog_->limits_;
  const std::lock_guard lock(backlog_->mutex_);
  Sum& own = backlog_->users_[user_];
  for (Sum* sum : {&backlog_->all_, &own}) sum->bytes += unsent - bytes_;
  bytes_ = unsent;
  return backlog_->all_.limit(own.limit(most, limits.backlogOfUser, limits.sessionsOfUser),
                              limits.backlog, limits.sessions);
}

}  // namespace router
