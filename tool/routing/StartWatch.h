// Notices that a router which is asked to route ends at its start again and again.
//
// The client cannot tell: its connection waits in the endpoint until a router takes it. The job
// daemon knows.
//
// Threading: one thread; a question waits for the daemon's answer.
// Order: ask from time to time while the start has not been answered.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/services/JobDaemon.h"

namespace tool {

class StartWatch {
 public:
  /// How often to ask.
  static constexpr std::chrono::milliseconds kInterval{200};
  /// A router that ended so often without an answer will not give one.
  static constexpr std::uint64_t kEnds = 3;
  /// One that is held back for longer has ended so often before.
  static constexpr std::uint64_t kLongHoldBack = 1000;

  explicit StartWatch(platform::SystemRoot root) : root_(std::move(root)) {}

  /// Asks the job daemon. Why the start will not be answered, in words, or nothing as long as it
  /// may be.
  [[nodiscard]] std::optional<std::string> ask();
  /// The same, given what the daemon says of the router's job.
  [[nodiscard]] std::optional<std::string> take(const platform::JobStatus& job);

 private:
  const platform::SystemRoot root_;
  std::optional<std::uint64_t> endsBefore_;
};

}  // namespace tool
