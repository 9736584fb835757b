// Start requests that wait: for their turn, or so long at most for something else.
//
// A request that waits holds up nobody: one thread tells all of them when their time has come. It
// does nothing else, for housekeeping waits for disks.
//
// Threading: any thread. The line's own thread calls the wakes, with no lock held.
// Ownership: a ticket holds the line. Whoever begins the line ends it, not in a wake.
// Errors: begin() throws std::system_error.
// Order: turns come in the order of the requests, those of a user and those of all users together.
//   A request that is given up was never in the line: those behind it move up.
#pragma once

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

namespace router {

class StartLine : public std::enable_shared_from_this<StartLine> {
 public:
  using Clock = TokenBucket::Clock;
  /// Called once, when the time has come, unless the ticket has gone by then. Must not wait.
  using Wake = std::function<void()>;

  /// A request is in the line for as long as it has this.
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
    /// The turn is used: it does not go back when the ticket goes.
    void useTurn() { line_->useTurn(number_); }

   private:
    std::shared_ptr<StartLine> line_;
    std::uint64_t number_ = 0;
  };

  enum class Turn {
    Now,
    Later,  ///< with a ticket
    Never,  ///< it is too far off
  };

  explicit StartLine(const RouterLimits& limits) : quota_(limits) {}
  StartLine(const StartLine&) = delete;
  StartLine& operator=(const StartLine&) = delete;
  ~StartLine() { end(); }

  /// Wakes are called from now on.
  void begin();
  /// None is called any more; one that is being called is waited for.
  void end();

  /// Asks for a turn of that user.
  Turn askForTurn(uid_t user, Clock::time_point now, Wake wake, Ticket* returnTicket);
  [[nodiscard]] Ticket waitUntil(Clock::time_point time, Wake wake);
  /// The wakes whose time has come, for the caller to call, as the line's thread does.
  [[nodiscard]] std::vector<Wake> takeDue(Clock::time_point now);

 private:
  struct Waiting {
    Clock::time_point due;
    Wake wake;                            // empty once it is taken
    std::optional<TurnQuota::Turn> turn;  // that goes back if it is not used
  };
  using Line = std::map<std::uint64_t, Waiting>;

  std::uint64_t enterLocked(Waiting waiting);
  void useTurn(std::uint64_t number);
  void leave(std::uint64_t number);
  void giveBackLocked(TurnQuota::Turn turn, Line::iterator behind);
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
