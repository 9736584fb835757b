// SPDX-License-Identifier: Apache-2.0

// The library's own thread: work that is posted to it, timers, and descriptors that become
// readable.
//
// One for the process, started when it is first needed. Nothing that runs on it may wait.
//
// Threading: any thread.
// Ownership: never destroyed.
// Errors: std::system_error if it cannot be started. What throws on it costs nothing but itself.
// Order: posted work in order; timers when they are due, never before.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "platform/services/FileDescriptor.h"

namespace wlhid {

class Loop {
 public:
  using Clock = std::chrono::steady_clock;
  using Work = std::function<void()>;
  using Timer = std::uint64_t;

  static Loop& shared();

  void post(Work work);
  Timer after(Clock::duration delay, Work work);
  /// One that is due already may still run.
  void cancel(Timer timer);
  /// Calls `readable` whenever the descriptor is readable, until it is unwatched.
  void watch(int descriptor, Work readable);
  void unwatch(int descriptor);

 private:
  Loop();
  void run();
  void waitForWork();
  [[nodiscard]] std::vector<Work> takeDue();
  void wake() const;

  const platform::FileDescriptor wake_;
  std::mutex mutex_;
  std::vector<Work> posted_;
  std::multimap<Clock::time_point, std::pair<Timer, Work>> timers_;
  std::map<int, Work> watched_;
  std::vector<int> readable_;  // the loop's thread's
  Timer latest_ = 0;
};

}  // namespace wlhid
