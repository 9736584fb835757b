// SPDX-License-Identifier: Apache-2.0

// The router's sessions and other visitors: how many there may be, whether there is one, what has
// changed.
//
// The router is in use as long as there is a session or a visitor. Once it has been out of use for
// a while it closes: from then on it keeps no session.
//
// Threading: any thread.
// Ownership: holds a session from keep() to remove(). A visit keeps the registry alive.
// Order: sessions are listed by age.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "router/RouterLimits.h"
#include "router/RouterStatus.h"

namespace router {

class Session;

class SessionRegistry : public std::enable_shared_from_this<SessionRegistry> {
 public:
  using Clock = std::chrono::steady_clock;
  using Sessions = std::vector<std::shared_ptr<Session>>;
  enum class Entry { Kept, Closed, TooMany, TooManyOfUser };

  /// If several users share the router, a session's number tells nothing of how many there were.
  SessionRegistry(const RouterLimits& limits, bool isShared)
      : limits_(limits), isShared_(isShared) {}

  /// From now on the time without sessions counts.
  void begin();
  /// Keeps no more sessions. False if it was stopped before.
  [[nodiscard]] bool stop();
  /// How many sessions are left when there are none any more or the time is up.
  [[nodiscard]] std::size_t waitUntilEmpty(Clock::duration limit);

  /// For the next session. No live session has it.
  [[nodiscard]] std::uint64_t takeNumber();
  [[nodiscard]] Entry keep(const std::shared_ptr<Session>& session);
  void remove(const std::shared_ptr<Session>& session);
  [[nodiscard]] Sessions all() const;
  /// Null if no session has it.
  [[nodiscard]] std::shared_ptr<Session> withNumber(std::uint64_t number) const;

  /// While it exists, the router is in use. Null if it has closed.
  [[nodiscard]] std::shared_ptr<void> visit();

  /// Closes if it has been out of use for that long; returns whether it has closed just now.
  [[nodiscard]] bool closeIfUnused(Clock::duration limit);
  void noteChange();
  /// Whether there has been a change since the last call.
  [[nodiscard]] bool takeChange();
  /// Waits for a change. Also returns after the interval while there are sessions, and when it may
  /// be time to close. False once it is stopped and all sessions have ended.
  [[nodiscard]] bool waitForChange(Clock::duration interval, Clock::duration unusedLimit);

  /// Of that user's sessions, those that have ended included in what was lost; without a user, of
  /// all.
  [[nodiscard]] RouterStatus status(std::optional<uid_t> user) const;

 private:
  class Visit;
  void leave();
  [[nodiscard]] bool isUsedLocked() const { return !sessions_.empty() || visitors_ > 0; }
  [[nodiscard]] bool isTakenLocked(std::uint64_t number) const;

  const RouterLimits limits_;
  const bool isShared_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Sessions sessions_;
  std::uint64_t latestNumber_ = 0;
  std::size_t visitors_ = 0;
  std::map<uid_t, std::uint64_t> lostByEnded_;  // of users who have lost something
  Clock::time_point unusedSince_ = Clock::now();
  bool isClosed_ = false;
  bool isStopped_ = false;
  bool hasChange_ = true;
};

}  // namespace router
