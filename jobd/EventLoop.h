// SPDX-License-Identifier: Apache-2.0

// Waits for descriptors and timers on one thread.
//
// Threading: the thread that runs it.
// Ownership: a watch or timer lasts as long as its token, and the loop outlives its tokens. A
//   handler may end any token, including its own, and create others.
// Errors: std::system_error if the kernel refuses a watch.
// Order: handlers of one iteration run in the kernel's order; timers that are due run in order of
//   their time.
#pragma once

#include <sys/epoll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "platform/services/FileDescriptor.h"

namespace jobd {

class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;

  /// Ends its watch or timer when destroyed.
  class [[nodiscard]] Token {
   public:
    Token() = default;
    Token(Token&& other) noexcept : loop_(std::exchange(other.loop_, nullptr)), id_(other.id_) {}
    Token& operator=(Token&& other) noexcept;
    Token(const Token&) = delete;
    Token& operator=(const Token&) = delete;
    ~Token() { end(); }

    void end();
    explicit operator bool() const { return loop_ != nullptr; }

   private:
    friend class EventLoop;
    Token(EventLoop* loop, std::uint64_t id) : loop_(loop), id_(id) {}
    EventLoop* loop_ = nullptr;
    std::uint64_t id_ = 0;
  };

  EventLoop();

  /// Calls `handler` whenever `descriptor` has one of `events` (EPOLLIN, EPOLLOUT); a hang-up or an
  /// error counts as both.
  Token watch(int descriptor, std::uint32_t events, Handler handler);
  /// Calls `handler` once, `delay` from now.
  Token after(std::chrono::milliseconds delay, Handler handler);

  /// Returns after stop().
  void run();
  void stop() { stopped_ = true; }

 private:
  struct Entry {
    int descriptor = -1;  // -1: a timer
    Clock::time_point due;
    std::shared_ptr<const Handler> handler;
  };

  void end(std::uint64_t id);
  void call(std::uint64_t id);
  void runDueTimers();
  [[nodiscard]] int millisecondsToNextTimer() const;

  platform::FileDescriptor epoll_;
  std::map<std::uint64_t, Entry> entries_;
  std::multimap<Clock::time_point, std::uint64_t> timers_;
  std::uint64_t nextId_ = 1;
  bool stopped_ = false;
};

}  // namespace jobd
