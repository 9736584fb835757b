// SPDX-License-Identifier: Apache-2.0

// How long reports took from their arrival at the router to their arrival here. Both are known by a
// report's number since the routing began, and by the computer's monotonic clock.
//
// Threading: one thread at a time.
// Order: what the router knows may come at any time after the reports; each report counts once.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "router/ReportArrivals.h"
#include "tool/measuring/Durations.h"

namespace tool {

struct LatencyFigures {
  std::uint64_t reports = 0;  ///< that were measured
  Durations::Time median{};
  Durations::Time longOnes{};  ///< that 99 of 100 do not exceed
  Durations::Time longest{};
};

class Latency {
 public:
  Latency() : here_(router::ArrivalNotes::kMost) {}

  /// The report with that number has arrived here. The first, 1, begins another routing.
  void arrived(std::uint64_t number, std::chrono::steady_clock::time_point time);
  /// Which routing is going on, for the question to the router; 0: none.
  [[nodiscard]] std::uint64_t routing() const { return routing_; }
  /// The router's answer, unless another routing has begun since.
  void take(const router::ReportArrivals& router, std::uint64_t routing);

  /// Nothing while none was measured.
  [[nodiscard]] std::optional<LatencyFigures> figures() const;

 private:
  std::vector<std::chrono::nanoseconds> here_;  // each at its number's place, round and round
  std::uint64_t latest_ = 0;                    // number
  std::uint64_t taken_ = 0;                     // up to this number
  std::uint64_t routing_ = 0;
  Durations durations_;
};

}  // namespace tool
