// SPDX-License-Identifier: Apache-2.0

// Runs one object's callbacks one at a time, whichever threads they come from.
//
// A call that is run runs on the thread that brings it, or, if another thread is running one, on
// that thread afterwards; whoever brings calls faster than they run waits, so nothing piles up. A
// call that is posted never runs on the thread that brings it, and never makes it wait.
//
// Threading: any thread, also from within a call. No lock is held while a call runs. The first
//   posted call starts a thread, which ends after close().
// Ownership: a call is kept until it has run or the strand is closed.
// Errors: an exception is logged and costs that call.
// Order: that of run() and post().
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace wlhid {

class Strand : public std::enable_shared_from_this<Strand> {
 public:
  using Call = std::function<void()>;

  void run(Call call);
  void post(Call call);
  /// From then on no call begins. Waits for one that runs on another thread.
  void close();

 private:
  static constexpr std::size_t kMostWaiting = 64;
  void runAll(std::unique_lock<std::mutex>& lock);
  void work();

  std::mutex mutex_;
  // Apart from the other, because every call of thousands a second would wake the idle thread.
  std::condition_variable work_;     // for the thread of what is posted
  std::condition_variable changed_;  // for those who wait for room or for the end
  std::deque<Call> waiting_;
  std::thread::id runner_;  // whose turn it is; none if nothing runs
  bool isClosed_ = false;
  bool hasThread_ = false;
};

}  // namespace wlhid
