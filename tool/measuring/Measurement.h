// SPDX-License-Identifier: Apache-2.0

// What can be measured of a device's reports: how often they come, which repeat the one before, and
// how much of its range each axis uses.
//
// Threading: one thread at a time.
// Order: take the reports in their order.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "router/ReportDecoder.h"
#include "router/ReportDescriptor.h"
#include "tool/measuring/Controls.h"
#include "tool/measuring/Intervals.h"
#include "tool/routing/RouteSummary.h"

namespace tool {

/// The values of one axis that have been seen.
struct AxisUse {
  Control control;
  std::uint64_t values = 0;
  std::int64_t smallest = 0;
  std::int64_t largest = 0;
  std::uint64_t step = 0;  ///< that all differences are a multiple of; 0: only one value

  void take(std::int64_t value);
  /// How many different values the axis could have between its ends with this step.
  [[nodiscard]] std::uint64_t positions() const;
  /// Of the descriptor's range, in bits.
  [[nodiscard]] double declaredBits() const;
  [[nodiscard]] double usedBits() const;
  /// Steps per unit, if the descriptor names one.
  [[nodiscard]] std::optional<double> stepsPerUnit() const;
};

class Measurement {
 public:
  Measurement(std::shared_ptr<const router::ReportDescriptor> descriptor,
              std::chrono::microseconds gap);

  void take(std::chrono::microseconds time, std::span<const std::uint8_t> report);

  [[nodiscard]] std::uint64_t reports() const { return reports_; }
  /// Reports that are the same as the one before with their ID.
  [[nodiscard]] std::uint64_t repeated() const { return repeated_; }
  [[nodiscard]] const Intervals& intervals() const { return intervals_; }
  [[nodiscard]] const std::vector<AxisUse>& axes() const { return axes_; }
  /// Whether the reports have times that differ.
  [[nodiscard]] bool hasTimes() const { return intervals_.total().count() > 0; }
  /// Reports per second while the device is in use: from the typical interval.
  [[nodiscard]] double rate() const;

 private:
  router::ReportDecoder decoder_;
  Intervals intervals_;
  std::vector<AxisUse> axes_;
  std::uint64_t reports_ = 0;
  std::uint64_t repeated_ = 0;
  std::array<std::vector<std::uint8_t>, 256> last_;  // by report ID
};

/// "125 Hz; 3 gaps over 50 ms; none lost".
[[nodiscard]] std::string verdictOn(const Measurement& measurement,
                                    const std::optional<Losses>& losses);
/// Everything, for people.
[[nodiscard]] std::string measurementText(const Measurement& measurement,
                                          const std::optional<Losses>& losses);
/// "8.02 ms", "310 µs", "1.50 s".
[[nodiscard]] std::string durationText(std::chrono::microseconds time);

}  // namespace tool
