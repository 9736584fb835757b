// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/Admissions.h"

#include <algorithm>

namespace platform::xpc {

template <class Condition>
std::size_t Admissions::countLocked(const Condition& condition) const {
  return static_cast<std::size_t>(
      std::count_if(entries_.begin(), entries_.end(),
                    [&](const auto& entry) { return condition(entry.second); }));
}

template <class Condition>
Admissions::Entries::iterator Admissions::oldestSilentLocked(const Condition& condition) {
  return std::find_if(entries_.begin(), entries_.end(), [&](const auto& entry) {
    return entry.second.isSilent && condition(entry.second);
  });
}

/// Room is made by ending the oldest silent connection: of the same user if that user's limits are
/// reached, of any user if all places are taken. If none is silent, the new one is refused.
Admissions::Answer Admissions::admit(uid_t user, std::weak_ptr<ConnectionCore> connection) {
  const auto isOfUser = [user](const Entry& entry) { return entry.user == user; };
  const auto isAny = [](const Entry&) { return true; };
  const std::lock_guard lock(mutex_);
  const std::size_t silent =
      countLocked([&](const Entry& entry) { return entry.isSilent && isOfUser(entry); });
  const bool userIsAtLimit = countLocked(isOfUser) >= limits_.connectionsOfUser;
  const bool allAreTaken = entries_.size() >= limits_.connections;
  Answer answer;
  if (silent >= limits_.withoutHelloOfUser || userIsAtLimit || allAreTaken) {
    const bool bySame = userIsAtLimit || silent >= limits_.withoutHelloOfUser;
    const auto oldest = bySame ? oldestSilentLocked(isOfUser) : oldestSilentLocked(isAny);
    if (oldest == entries_.end()) {
      if (!std::exchange(isRefusing_, true)) {
        answer.refusal =
            userIsAtLimit ? "its user has too many connections" : "there are too many connections";
      }
      return answer;
    }
    answer.ended = oldest->second.connection;
    entries_.erase(oldest);
  }
  isRefusing_ = false;
  auto budget = budgetOfLocked(user);
  const auto entered = entries_.emplace(++lastNumber_, Entry{user, std::move(connection)}).first;
  try {
    answer.place = std::make_unique<Place>(shared_from_this(), lastNumber_, std::move(budget));
  } catch (...) {
    entries_.erase(entered);
    throw;
  }
  return answer;
}

void Admissions::leave(std::uint64_t number) {
  if (mark_.isInherited()) return;
  const std::lock_guard lock(mutex_);
  entries_.erase(number);
}

void Admissions::noteHello(std::uint64_t number) {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(number);
  if (found != entries_.end()) found->second.isSilent = false;
}

std::shared_ptr<UnsentBudget> Admissions::budgetOfLocked(uid_t user) {
  std::erase_if(unsentOfUser_, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<UnsentBudget>& known = unsentOfUser_[user];
  auto budget = known.lock();
  if (!budget) budget = std::make_shared<UnsentBudget>(limits_.unsentBytesOfUser, unsent_);
  known = budget;
  return budget;
}

}  // namespace platform::xpc
