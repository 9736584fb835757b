// How long to hold back the report that a connection ended, so that a client that reopens at once
// cannot spin.
//
// A client whose connections to one service keep ending within a second, and not by its own hand,
// hears of the first end at once, of the next after 1 ms, then after 2, 4 … 1,000 ms. A connection
// that lasted longer starts the count afresh. Clients are counted apart: what befalls one of them
// keeps no report from another.
//
// Threading: any thread.
// Ownership: a client is only named, never kept.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace platform::xpc {

inline constexpr std::chrono::milliseconds kLongestPause{1000};
inline constexpr std::chrono::milliseconds kShortLife{1000};

/// 0 for attempt 0, then 1, 2, 4 … kLongestPause.
[[nodiscard]] std::chrono::milliseconds pauseBeforeAttempt(unsigned attempt);

/// How often what fails for want of memory, descriptors or room in a queue is tried, with these
/// pauses, before the connection ends for it: half a minute in all. For tests to change.
inline std::atomic<unsigned> attemptsWhileShort{40};

/// Notes that a connection of `client` to `service` ended after `life` and returns the pause that
/// its report takes. `client` is whoever would connect again: the exported object.
[[nodiscard]] std::chrono::milliseconds pauseAfterEnd(const std::weak_ptr<void>& client,
                                                      const std::string& service,
                                                      std::chrono::steady_clock::duration life);

/// Starts every count afresh: for programs that want ends reported at once, however many.
void forgetShortLives();

}  // namespace platform::xpc
