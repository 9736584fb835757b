// SPDX-License-Identifier: Apache-2.0

// Writes log entries on a thread of its own, because a write may wait (for a disk, for the journal)
// and whoever logs must not.
//
// Threading: add() from any thread; `write` is called on the log's own.
// Ownership: the thread shares what it needs, so that one which is stuck in a write does not hold
// up
//   the end of the log.
// Order: as added. What does not fit into memory is left out and counted, and the count is written
//   in its place.
// Errors: none. At its end the log waits a moment for what is still to be written, and no longer.
#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "router/LogTable.h"

namespace router {

struct LogEntry {
  platform::LogLine line;
  /// For logs that have such: names and values.
  std::vector<std::pair<std::string, std::string>> fields{};
  bool isNotable = false;
  std::time_t at = std::time(nullptr);
};

class BackgroundLog {
 public:
  using Write = std::function<void(const LogEntry& entry)>;
  struct Limits {
    std::size_t waiting = 512;  ///< entries
    std::chrono::milliseconds farewell{2000};
  };

  explicit BackgroundLog(Write write) : BackgroundLog(std::move(write), Limits()) {}
  BackgroundLog(Write write, const Limits& limits);
  BackgroundLog(const BackgroundLog&) = delete;
  BackgroundLog& operator=(const BackgroundLog&) = delete;
  ~BackgroundLog();

  /// Never waits.
  void add(LogEntry entry);

 private:
  struct Shared;
  static void run(Shared& shared);

  const Limits limits_;
  const std::shared_ptr<Shared> shared_;
  std::thread thread_;
};

}  // namespace router
