// SPDX-License-Identifier: Apache-2.0

// Detects a router that keeps failing at startup.
//
// The client cannot tell: its connection waits in the endpoint's backlog until a router accepts it.
// The job daemon knows.
//
// Threading: one thread, which blocks until the daemon answers.
// Order: ask from time to time until the start request has been answered.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/services/Control.h"
#include "platform/services/SystemRoot.h"

namespace tool {

class StartWatch {
 public:
  /// How often to ask.
  static constexpr std::chrono::milliseconds kInterval{200};
  /// A router that ended this often without an answer will not give one.
  static constexpr std::uint64_t kEnds = 3;
  /// Milliseconds: a router held back for this long had already ended that often.
  static constexpr std::uint64_t kLongHoldBack = 1000;

  explicit StartWatch(platform::SystemRoot root) : root_(std::move(root)) {}

  /// Asks the job daemon. Returns why the start request will not be answered, or nothing while it
  /// still may be.
  [[nodiscard]] std::optional<std::string> ask();
  /// The same for a given reply, and for a given status of the router's job.
  [[nodiscard]] std::optional<std::string> take(const platform::ControlReply& status);
  [[nodiscard]] std::optional<std::string> take(const platform::JobStatus& job);

 private:
  const platform::SystemRoot root_;
  std::optional<std::uint64_t> endsBefore_;
  std::string lastEnd_;  ///< systemd forgets it while the next process runs
};

}  // namespace tool
