// What happened, in one order: each event as a value and as a line of text.
//
// Threading: any thread.
// Ownership: results are copies.
// Order: lines stand in the order in which they were recorded; those of one thread in that thread's
//   own order.
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
  Connection,    ///< a connection was made, set up, resumed, invalidated, released
  Message,       ///< a message was sent on a connection; `name` is its selector
  Notification,  ///< of the default notification center
  Log,           ///< a line of NSLog or of the logger
  Change,        ///< of an observed property
  Delegate,      ///< a delegate was called
  Note,          ///< anything that a test writes down itself
};

struct TraceEvent {
  TraceKind kind = TraceKind::Note;
  std::string object;                  ///< who was called or spoke: "connection 1"
  std::string name;                    ///< what: a selector, a function, a property
  std::vector<std::string> arguments;  ///< as the text shows them
  std::string text;                    ///< the whole on one line
};

class Trace {
 public:
  void record(TraceEvent event);
  /// A note.
  void record(const std::string& line);
  /// Called with each line behind its recording, on the thread that recorded it and with no lock
  /// held, so that a test can hold that thread there. Null for none. Set while nothing is recorded.
  using Watcher = std::function<void(const std::string& line)>;
  void setWatcher(Watcher watcher);

  [[nodiscard]] std::vector<std::string> lines() const;
  [[nodiscard]] std::vector<TraceEvent> events() const;
  [[nodiscard]] std::vector<TraceEvent> events(TraceKind kind) const;
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
    TraceEvent event;
  };

  mutable std::mutex mutex_;
  mutable std::condition_variable recorded_;
  std::vector<Line> lines_;
  Watcher watcher_;
};

}  // namespace platform
