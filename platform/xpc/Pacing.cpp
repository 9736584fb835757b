#include "platform/xpc/Pacing.h"

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
  std::mutex mutex;
  std::map<std::string, Streak, std::less<>> byService;
};

Streaks& streaks() {
  static auto* const one = new Streaks;  // connections may outlive static destruction
  return *one;
}

/// Names whose last short life is long ago say nothing any more; without this, names never asked
/// for again would pile up.
constexpr std::chrono::seconds kForgottenAfter{10};

}  // namespace

std::chrono::milliseconds pauseBeforeAttempt(unsigned attempt) {
  if (attempt == 0) return std::chrono::milliseconds{0};
  return std::min(kLongestPause, std::chrono::milliseconds{1LL << std::min(attempt - 1, 10U)});
}

std::chrono::milliseconds pauseAfterEnd(const std::string& service,
                                        std::chrono::steady_clock::duration life) {
  Streaks& s = streaks();
  const auto now = std::chrono::steady_clock::now();
  const std::lock_guard lock(s.mutex);
  std::erase_if(s.byService,
                [now](const auto& entry) { return now - entry.second.last > kForgottenAfter; });
  if (life >= kShortLife) {
    s.byService.erase(service);
    return std::chrono::milliseconds{0};
  }
  try {
    auto& streak = s.byService[service];
    streak.last = now;
    return pauseBeforeAttempt(streak.shortLives++);
  } catch (const std::bad_alloc&) {
    return kLongestPause;  // whoever is short of memory is in no hurry
  }
}

void forgetShortLives() {
  Streaks& s = streaks();
  const std::lock_guard lock(s.mutex);
  s.byService.clear();
}

}  // namespace platform::xpc
