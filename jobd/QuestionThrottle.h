// SPDX-License-Identifier: Apache-2.0

// Keeps callers from having the same person asked again and again.
//
// One question at a time for each user, and after a no, or a dismissed or withdrawn question, none
// for a while: 2 s, doubled with each further one, up to a minute. A yes, or ten minutes without a
// question, resets it. If there was nobody to ask, no question was seen, and none has to wait. The
// superuser is never asked and so never held back.
//
// Threading: one thread.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>

namespace jobd {

class QuestionThrottle {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kShortestPause{2};
  static constexpr std::chrono::seconds kLongestPause{60};
  static constexpr std::chrono::minutes kMemory{10};

  enum class Answer { Yes, No, NobodyToAsk };

  /// Why no question may be asked for the user now; empty if one may, which is open from now on.
  [[nodiscard]] std::string begin(uid_t user, Clock::time_point now) {
    forget(now);
    if (user == 0) return {};
    User& state = users_[user];
    if (state.isOpen) return "another question is open; answer that one first";
    if (now < state.notBefore)
      return "the last question was not answered with yes; try again later";
    state.isOpen = true;
    return {};
  }

  /// Whether an answer of somebody's still counts against the next question.
  [[nodiscard]] bool remembersAnybody(Clock::time_point now) {
    forget(now);
    return !users_.empty();
  }

  /// The open question has been answered.
  void end(uid_t user, Answer answer, Clock::time_point now) {
    const auto found = users_.find(user);
    if (found == users_.end()) return;
    if (answer == Answer::Yes) {
      users_.erase(found);
      return;
    }
    found->second.isOpen = false;
    if (answer == Answer::NobodyToAsk) return;
    found->second.notBefore = now + found->second.pause;
    found->second.pause = std::min<Clock::duration>(2 * found->second.pause, kLongestPause);
  }

 private:
  struct User {
    bool isOpen = false;
    Clock::time_point notBefore;
    Clock::duration pause = kShortestPause;
  };

  void forget(Clock::time_point now) {
    std::erase_if(users_, [&](const auto& each) {
      const User& user = each.second;
      const bool isOver = user.pause == kShortestPause || now > user.notBefore + kMemory;
      return !user.isOpen && isOver;
    });
  }

  std::map<uid_t, User> users_;
};

}  // namespace jobd
