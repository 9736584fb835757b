// SPDX-License-Identifier: Apache-2.0

// A connection to the system's message bus, and the thread that it lives on.
//
// The connection is made when the object is, and again after it was lost, with longer and longer
// breaks between the attempts. While there is none, connection() is null, and whoever wants to call
// somebody gets an error instead of a wait.
//
// Threading: post, run and isOnItsThread from any thread, everything else on the bus's own thread.
//   No lock is held while a job or a handler runs. They share the thread with everybody else who
//   uses this bus, so they must not block.
// Ownership: what uses a bus is destroyed before it. Not to be destroyed on its own thread. A
//   child process that inherits one must execute a program or exit at once.
// Order: jobs run in the order in which they were posted.
// Errors: the constructor throws std::system_error if there is no thread or descriptor left. A
//   handler must not throw.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/system/BusTypes.h"

namespace platform::system {

class SystemBus {
 public:
  using Clock = std::chrono::steady_clock;
  enum class TimerID : std::uint64_t {};
  enum class ListenerID : std::uint64_t {};

  struct Options {
    /// The system's own bus, whatever the environment says.
    std::string address = "unix:path=/run/dbus/system_bus_socket";
    Clock::duration firstBreak = std::chrono::milliseconds(100);
    Clock::duration longestBreak = std::chrono::seconds(5);
  };

  explicit SystemBus(Options options);
  SystemBus() : SystemBus(Options()) {}
  SystemBus(const SystemBus&) = delete;
  SystemBus& operator=(const SystemBus&) = delete;
  /// Tells the listeners that the connection is lost, and returns when no job is left.
  ~SystemBus();

  void post(std::function<void()> job);
  /// Returns when the job has run. On the bus's own thread it runs at once, before those waiting.
  void run(const std::function<void()>& job);
  [[nodiscard]] bool isOnItsThread() const;

  // ---- On the bus's own thread

  /// Null while there is none.
  [[nodiscard]] sd_bus* connection() const { return connection_.get(); }

  /// Calls `handler` once, when the time has come.
  TimerID callAfter(Clock::duration delay, std::function<void()> handler);
  void cancel(TimerID timer);

  /// Calls `changed` with true for each new connection and with false when one is lost; at once if
  /// there is one now. After a loss, connection() is null and nothing that was sent over the lost
  /// one is answered any more.
  ListenerID listen(const std::function<void(bool isConnected)>& changed);
  void unlisten(ListenerID listener);

  /// Calls `readable` whenever the descriptor is readable, until it is no longer watched.
  void watch(int descriptor, std::function<void()> readable);
  void unwatch(int descriptor);

 private:
  using Timers = std::multimap<Clock::time_point, std::pair<TimerID, std::function<void()>>>;

  void runThread();
  void connect();
  bool start(BusConnection& connection) const;
  void tell(bool isConnected);
  void lose();
  /// Whether there may be more to process.
  bool processBus();
  /// Whether there were any.
  bool runJobs();
  void runTimers();
  void wait();
  [[nodiscard]] Clock::duration timeLeft() const;
  void callReadable(const std::vector<int>& descriptors);
  void wake() const;
  void drainWakeUps() const;

  const Options options_;
  FileDescriptor wakeUp_;
  std::mutex mutex_;  ///< guards jobs_
  std::vector<std::function<void()>> jobs_;
  std::atomic<bool> isEnding_{false};

  // ---- The thread's own
  BusConnection connection_;
  Clock::duration nextBreak_;
  std::uint64_t lastID_ = 0;
  Timers timers_;
  std::map<ListenerID, std::function<void(bool)>> listeners_;
  std::map<int, std::function<void()>> watched_;

  std::thread thread_;
};

}  // namespace platform::system
