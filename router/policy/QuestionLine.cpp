// SPDX-License-Identifier: Apache-2.0

#include "router/policy/QuestionLine.h"

#include <algorithm>
#include <utility>

namespace router {

std::unique_ptr<QuestionLine::Place> QuestionLine::enter(uid_t user, Question question) {
  std::unique_lock lock(mutex_);
  forgetLocked();
  const std::string refusal = refusalLocked(user);
  if (!refusal.empty()) {
    lock.unlock();
    question.refuse(refusal);
    return nullptr;
  }
  const std::uint64_t number = ++latest_;
  users_[user].line.push_back({number, std::move(question)});
  lock.unlock();
  return std::make_unique<Place>(shared_from_this(), user, number);
}

void QuestionLine::begin(uid_t user, std::uint64_t number) {
  std::function<void()> open;
  {
    const std::lock_guard lock(mutex_);
    auto& line = users_[user].line;
    const auto place = std::find_if(line.begin(), line.end(),
                                    [=](const Waiting& each) { return each.number == number; });
    if (place == line.end() || std::exchange(place->hasBegun, true)) return;
    if (place == line.begin()) open = place->question.open;
  }
  if (open) open();
}

/// Why the user is not asked now, or nothing.
std::string QuestionLine::refusalLocked(uid_t user) {
  const auto known = users_.find(user);
  if (known == users_.end()) return {};
  const auto now = now_();
  if (now < known->second.pausedUntil) {
    const auto left = std::chrono::ceil<std::chrono::seconds>(known->second.pausedUntil - now);
    return "the last question was not answered with yes; the next one can be asked in " +
           std::to_string(left.count()) + " s";
  }
  if (known->second.line.size() >= limits_.waitingPerUser)
    return "too many questions are waiting for this user";
  return {};
}

void QuestionLine::answered(uid_t user, std::uint64_t number, Answer answer) {
  std::deque<Waiting> refused;
  std::string reason;
  {
    const std::lock_guard lock(mutex_);
    const auto known = users_.find(user);
    if (known == users_.end()) return;
    User& asked = known->second;
    if (asked.line.empty() || asked.line.front().number != number) return;
    if (answer == Answer::Yes) asked.nextPause = {};
    if (answer != Answer::No) {
      asked.line.front().isAnswered = true;
      return;  // the next one opens when this place is dropped
    }
    pauseLocked(&asked);
    asked.line.pop_front();
    refused.swap(asked.line);
    reason = refusalLocked(user);
  }
  for (const Waiting& each : refused) each.question.refuse(reason);
}

void QuestionLine::pauseLocked(User* user) {
  const auto pause = std::max(user->nextPause, limits_.firstPause);
  user->pausedUntil = now_() + pause;
  user->nextPause = std::min(2 * pause, limits_.longestPause);
}

void QuestionLine::leave(uid_t user, std::uint64_t number) {
  std::function<void()> open;
  Waiting left;  // destroyed without the lock
  {
    const std::lock_guard lock(mutex_);
    const auto known = users_.find(user);
    if (known == users_.end()) return;
    auto& line = known->second.line;
    const auto place = std::find_if(line.begin(), line.end(),
                                    [=](const Waiting& each) { return each.number == number; });
    if (place == line.end()) return;
    const bool wasFirst = place == line.begin();
    left = std::move(*place);
    line.erase(place);
    if (wasFirst && left.hasBegun && !left.isAnswered) pauseLocked(&known->second);
    const bool opens = wasFirst && !line.empty() && line.front().hasBegun;
    if (opens) open = line.front().question.open;
  }
  if (open) open();
}

bool QuestionLine::remembersAnybody() {
  const std::lock_guard lock(mutex_);
  forgetLocked();
  return !users_.empty();
}

/// Users who have not said no, or whose last pause is long past, are like new ones.
void QuestionLine::forgetLocked() {
  const auto now = now_();
  std::erase_if(users_, [&](const auto& each) {
    const User& user = each.second;
    const bool isOver =
        user.nextPause == user.nextPause.zero() || now >= user.pausedUntil + limits_.longestPause;
    return user.line.empty() && isOver;
  });
}

}  // namespace router
