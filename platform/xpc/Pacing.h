// SPDX-License-Identifier: Apache-2.0

// How long to delay the notice that a connection ended, so that a client that reconnects at once
// cannot spin.
//
// If a client's connections to one service keep ending within a second, and not at its own request,
// the first notice comes at once, the next after 1 ms, then after 2, 4 … 1,000 ms. A connection
// that lasted longer resets the count. Clients are counted separately: what happens to one does not
// delay notices to another.
//
// Threading: any thread.
// Ownership: a client is only identified, never kept alive.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace platform::xpc {

inline constexpr std::chrono::milliseconds kLongestPause{1000};
inline constexpr std::chrono::milliseconds kShortLife{1000};

/// 0 for attempt 0, then 1, 2, 4 … up to kLongestPause.
[[nodiscard]] std::chrono::milliseconds pauseBeforeAttempt(unsigned attempt);

/// How often something that fails for lack of memory, descriptors or room in a queue is retried,
/// with these pauses, before the connection ends: half a minute in all. Tests may change it.
inline std::atomic<unsigned> attemptsWhileShort{40};

/// Records that a connection of `client` to `service` ended after `life`, and returns how long to
/// delay its notice. `client` is the one that would reconnect: the exported object.
[[nodiscard]] std::chrono::milliseconds pauseAfterEnd(const std::weak_ptr<void>& client,
                                                      const std::string& service,
                                                      std::chrono::steady_clock::duration life);

/// Resets every count: for programs that want all notices at once.
void forgetShortLives();

}  // namespace platform::xpc
