// What happened, one line an event, in one order.
//
// Threading: any thread.
// Ownership: results are copies.
// Errors: none.
// Order: lines stand in the order in which they were recorded; those of one thread in that thread's
//   own order.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace platform {

class Trace {
 public:
  void record(const std::string& line);
  /// Called with each line behind its recording, on the thread that recorded it and with no lock
  /// held, so that a test can hold that thread there. Null for none. Set while nothing is recorded.
  using Watcher = std::function<void(const std::string& line)>;
  void setWatcher(Watcher watcher);

  [[nodiscard]] std::vector<std::string> lines() const;
  /// Only what `thread` recorded.
  [[nodiscard]] std::vector<std::string> linesOfThread(std::thread::id thread) const;
  /// All lines, which are then forgotten.
  std::vector<std::string> take();
  /// Waits until `line` stands in the trace `count` times. False when that has not come to pass
  /// within `limit`.
  [[nodiscard]] bool waitFor(std::string_view line, std::size_t count = 1,
                             std::chrono::seconds limit = std::chrono::seconds(30)) const;
  /// As waitFor, for a line that begins with `prefix`.
  [[nodiscard]] bool waitForPrefix(std::string_view prefix,
                                   std::chrono::seconds limit = std::chrono::seconds(30)) const;

 private:
  struct Line {
    std::thread::id thread;
    std::string text;
  };

  mutable std::mutex mutex_;
  mutable std::condition_variable recorded_;
  std::vector<Line> lines_;
  Watcher watcher_;
};

}  // namespace platform
