// SPDX-License-Identifier: Apache-2.0

// What happened, in order: each event as a value and as a line of text.
//
// Threading: any thread.
// Order: lines are in the order in which they were recorded.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace platform {

enum class TraceKind : std::uint8_t {
  Call,          ///< of the platform: files, property lists, jobs, authorization, interfaces
  Connection,    ///< a connection was created, set up, resumed, invalidated or released
  Message,       ///< a message was sent on a connection; `name` is its selector
  Notification,  ///< of the default notification center
  Log,           ///< a line of NSLog or of the logger
  Change,        ///< of an observed property
  Delegate,      ///< a delegate was called
  Note,          ///< recorded by a test itself
};

struct TraceEvent {
  TraceKind kind = TraceKind::Note;
  std::string object;                  ///< the object called, or the source: "connection 1"
  std::string name;                    ///< a selector, a function or a property
  std::vector<std::string> arguments;  ///< as the text shows them
  std::string text;                    ///< the whole event on one line
};

class Trace {
 public:
  void record(TraceEvent event);
  /// Records a note.
  void record(const std::string& line);
  /// Called with each line after it has been recorded, on the recording thread and with no lock
  /// held, so that a test can block that thread there. May be null. Set only while nothing is
  /// recorded.
  using Watcher = std::function<void(const std::string& line)>;
  void setWatcher(Watcher watcher);

  [[nodiscard]] std::vector<std::string> lines() const;
  [[nodiscard]] std::vector<TraceEvent> events() const;
  [[nodiscard]] std::vector<TraceEvent> events(TraceKind kind) const;
  /// Only the lines that `thread` recorded.
  [[nodiscard]] std::vector<std::string> linesOfThread(std::thread::id thread) const;
  /// Returns all lines and removes them.
  std::vector<std::string> take();
  /// Waits until the trace contains `line` `count` times. False if it does not within `limit`.
  [[nodiscard]] bool waitFor(std::string_view line, std::size_t count = 1,
                             std::chrono::seconds limit = std::chrono::seconds(30)) const;
  /// Like waitFor, for one line that starts with `prefix`.
  [[nodiscard]] bool waitForPrefix(std::string_view prefix,
                                   std::chrono::seconds limit = std::chrono::seconds(30)) const;

 private:
  struct Line {
    std::thread::id thread;
    TraceEvent event;
  };

  mutable std::mutex mutex_;
  mutable std::condition_variable recorded_;
  std::vector<Line> lines_;
  Watcher watcher_;
};

}  // namespace platform
