// SPDX-License-Identifier: Apache-2.0

// Measures how long the reports of a device that this process routes take to get here, by asking
// the router from time to time when they reached it.
//
// Threading: ask() on the main thread, which waits for the answer; the rest on any.
// Errors: from a router that does not tell, nothing is known.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "tool/findings/RouterService.h"
#include "tool/measuring/Latency.h"

namespace tool {

class LatencyWatch {
 public:
  using Clock = std::chrono::steady_clock;

  /// The report with that number since the routing began.
  void arrived(std::uint64_t number, Clock::time_point time);
  /// To be called often; asks once a second at most, and not before there is a report.
  void ask(std::uint64_t registryEntryID);
  /// Nothing if none was measured.
  [[nodiscard]] std::optional<LatencyFigures> figures() const;

 private:
  std::unique_ptr<RouterService> router_;
  Clock::time_point next_{};
  mutable std::mutex mutex_;
  Latency latency_;
};

}  // namespace tool
