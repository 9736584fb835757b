// SPDX-License-Identifier: Apache-2.0

// When a client's reports reached the router, so that the client can tell how long they took from
// there. As an object:
//
//   First   integer   the number of the first one, counted from 1 since the routing began
//   Times   data      for each from then on, in its order, 8 bytes, little-endian: nanoseconds of
//                     the computer's monotonic clock
//
// Threading: one thread at a time.
// Errors: arrivalsIn() returns nothing for what is no such object.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/foundation/NSDictionary.h"

namespace router {

struct ReportArrivals {
  std::uint64_t first = 1;
  std::vector<std::chrono::nanoseconds> times;
  friend bool operator==(const ReportArrivals&, const ReportArrivals&) = default;
};

[[nodiscard]] std::shared_ptr<platform::NSDictionary> dictionaryOf(const ReportArrivals& arrivals);
[[nodiscard]] std::optional<ReportArrivals> arrivalsIn(const platform::NSDictionary& dictionary);

/// Keeps the latest.
class ArrivalNotes {
 public:
  /// A second of the fastest device.
  static constexpr std::size_t kMost = 8192;

  /// `first`: the number of the report that is noted first.
  explicit ArrivalNotes(std::uint64_t first) : times_(kMost), next_(first), first_(first) {}

  /// Their numbers follow each other.
  void note(std::uint64_t number, std::chrono::steady_clock::time_point arrival) {
    times_[number % kMost] = arrival.time_since_epoch();
    next_ = number + 1;
  }
  [[nodiscard]] ReportArrivals latest() const;

 private:
  std::vector<std::chrono::nanoseconds> times_;  // each at its number's place, round and round
  std::uint64_t next_;
  const std::uint64_t first_;
};

}  // namespace router
