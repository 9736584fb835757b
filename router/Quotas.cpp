// SPDX-License-Identifier: Apache-2.0

#include "router/Quotas.h"

namespace router {

std::optional<TurnQuota::Turn> TurnQuota::reserve(uid_t user, Time now) {
  const std::lock_guard lock(mutex_);
  // A bucket that is full again is the same as a new one.
  std::erase_if(users_, [&](const auto& each) { return each.second.isFull(now); });
  TokenBucket& own = users_.try_emplace(user, ratePerUser_).first->second;
  const auto ofUser = own.reserve(now, maximumWait_);
  if (!ofUser) return std::nullopt;
  const auto ofAll = all_.reserve(now, maximumWait_);
  if (!ofAll) {
    own.giveBack();
    return std::nullopt;
  }
  return Turn{user, now + *ofUser, now + *ofAll};
}

void TurnQuota::giveBack(uid_t user) {
  const std::lock_guard lock(mutex_);
  all_.giveBack();
  // An unknown user has a full bucket.
  if (const auto own = users_.find(user); own != users_.end()) own->second.giveBack();
}

bool LineBudget::admits(TokenBucket::Clock::time_point now) {
  const bool isAdmitted = bucket_.take(now);
  if (!isAdmitted) ++leftOut_;
  return isAdmitted;
}

bool LineQuota::admits(uid_t user, TokenBucket::Clock::time_point now,
                       std::uint64_t* returnLeftOut) {
  const std::lock_guard lock(mutex_);
  std::erase_if(users_, [&](const auto& each) { return each.second.isUnused(now); });
  LineBudget& budget = users_.try_emplace(user, rate_).first->second;
  if (!budget.admits(now)) return false;
  *returnLeftOut = budget.takeLeftOut();
  return true;
}

std::vector<LineQuota::LeftOut> LineQuota::takeLeftOut(TokenBucket::Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  std::vector<LeftOut> result;
  for (auto& [user, budget] : users_) {
    const std::uint64_t lines = budget.takeLeftOut();
    if (lines == 0) continue;
    // The line that reports them needs a place, too; if there is none, they are reported later.
    if (budget.admits(now)) {
      result.push_back({user, lines});
    } else {
      static_cast<void>(budget.takeLeftOut());
      budget.leaveOut(lines);
    }
  }
  return result;
}

}  // namespace router
