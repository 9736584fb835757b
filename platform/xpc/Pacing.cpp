// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/Pacing.h"

#include <pthread.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <new>

namespace platform::xpc {
namespace {

struct Streaks {
  struct Streak {
    unsigned shortLives = 0;
    std::chrono::steady_clock::time_point last;
  };
  struct Key {
    std::weak_ptr<void> client;
    std::string service;
    bool operator<(const Key& other) const {
      if (client.owner_before(other.client)) return true;
      return !other.client.owner_before(client) && service < other.service;
    }
  };
  std::mutex mutex;
  std::map<Key, Streak> byClient;
};

/// Never destroyed: connections may outlive static destruction.
Streaks& streaks() {
  static auto* const one = new Streaks;
  // So that a child of this process finds it consistent and unlocked.
  static const int guarded = ::pthread_atfork(
      [] { one->mutex.lock(); }, [] { one->mutex.unlock(); }, [] { one->mutex.unlock(); });
  static_cast<void>(guarded);
  return *one;
}

/// An entry whose last short life is that long ago, or whose client no longer exists, has become
/// meaningless; without this limit such entries would pile up.
constexpr std::chrono::seconds kForgottenAfter{10};

}  // namespace

std::chrono::milliseconds pauseBeforeAttempt(unsigned attempt) {
  if (attempt == 0) return std::chrono::milliseconds{0};
  return std::min(kLongestPause, std::chrono::milliseconds{1LL << std::min(attempt - 1, 10U)});
}

std::chrono::milliseconds pauseAfterEnd(const std::weak_ptr<void>& client,
                                        const std::string& service,
                                        std::chrono::steady_clock::duration life) {
  Streaks& s = streaks();
  const auto now = std::chrono::steady_clock::now();
  const std::lock_guard lock(s.mutex);
  std::erase_if(s.byClient, [now](const auto& entry) {
    return entry.first.client.expired() || now - entry.second.last > kForgottenAfter;
  });
  try {
    const Streaks::Key key{client, service};
    if (life >= kShortLife) {
      s.byClient.erase(key);
      return std::chrono::milliseconds{0};
    }
    auto& streak = s.byClient[key];
    streak.last = now;
    return pauseBeforeAttempt(streak.shortLives++);
  } catch (const std::bad_alloc&) {
    return kLongestPause;  // with memory short, a delay does no harm
  }
}

void forgetShortLives() {
  Streaks& s = streaks();
  const std::lock_guard lock(s.mutex);
  s.byClient.clear();
}

}  // namespace platform::xpc
