// SPDX-License-Identifier: Apache-2.0

// Start requests that wait: for their turn, or with a time limit for something else.
//
// A waiting request blocks no thread: one thread wakes all of them when they are due. It does
// nothing else, because housekeeping may block on disk.
//
// Threading: any thread. The line's own thread calls the wakes, with no lock held.
// Ownership: a ticket keeps the line alive. The caller of begin() calls end(), not from a wake.
// Errors: begin() throws std::system_error.
// Order: turns come in the order of the requests, both per user and overall. A request that is
//   given up frees its turn: those after it move up.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "router/Quotas.h"
#include "router/RouterLimits.h"
#include "router/TokenBucket.h"

namespace router {

class StartLine : public std::enable_shared_from_this<StartLine> {
 public:
  using Clock = TokenBucket::Clock;
  /// Called once when the request is due, unless its ticket is gone by then. Must not wait.
  using Wake = std::function<void()>;

  /// A request is in the line as long as it has this.
  class Ticket {
   public:
    Ticket() = default;
    Ticket(std::shared_ptr<StartLine> line, std::uint64_t number)
        : line_(std::move(line)), number_(number) {}
    Ticket(Ticket&& other) noexcept = default;
    Ticket& operator=(Ticket&& other) noexcept {
      std::swap(line_, other.line_);
      std::swap(number_, other.number_);
      return *this;
    }
    ~Ticket() {
      if (line_ != nullptr) line_->leave(number_);
    }
    /// The turn is used: it is not returned with the ticket.
    void useTurn() { line_->useTurn(number_); }

   private:
    std::shared_ptr<StartLine> line_;
    std::uint64_t number_ = 0;
  };

  enum class Turn {
    Now,
    Later,  ///< with a ticket
    Never,  ///< it would come too late
  };

  explicit StartLine(const RouterLimits& limits) : quota_(limits) {}
  StartLine(const StartLine&) = delete;
  StartLine& operator=(const StartLine&) = delete;
  ~StartLine() { end(); }

  /// From now on wakes are called.
  void begin();
  /// From now on no wake is called; waits for one that is running.
  void end();

  /// Asks for a turn for that user.
  Turn askForTurn(uid_t user, Clock::time_point now, Wake wake, Ticket* returnTicket);
  [[nodiscard]] Ticket waitUntil(Clock::time_point time, Wake wake);
  /// The wakes that are due, for the caller to call, as the line's thread does.
  [[nodiscard]] std::vector<Wake> takeDue(Clock::time_point now);

 private:
  struct Waiting {
    Clock::time_point due;
    Wake wake;                            // empty once taken
    std::optional<TurnQuota::Turn> turn;  // returned if it is not used
  };
  using Line = std::map<std::uint64_t, Waiting>;

  std::uint64_t enterLocked(Waiting waiting);
  void useTurn(std::uint64_t number);
  void leave(std::uint64_t number);
  void giveBackLocked(TurnQuota::Turn turn, Line::iterator after);
  [[nodiscard]] std::optional<Clock::time_point> nextLocked() const;
  void run();

  TurnQuota quota_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Line line_;  // by number, so in the order of the requests
  std::uint64_t latest_ = 0;
  bool hasEnded_ = false;
  std::thread thread_;
};

}  // namespace router
