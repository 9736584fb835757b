// SPDX-License-Identifier: Apache-2.0

// A limited number of reports in one piece of memory, each with the time at which it came, handed
// out in the order in which they were put in.
//
// Threading: one thread at a time.
// Ownership: a report is valid until the buffer is cleared or destroyed.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "router/RouterLimits.h"

namespace router {

class ReportBuffer {
 public:
  using Time = std::chrono::steady_clock::time_point;
  struct Report {
    Time arrival;
    std::span<const std::uint8_t> bytes;
  };

  ReportBuffer() {
    bytes_.reserve(RouterLimits::kReadAheadBytes);
    reports_.reserve(RouterLimits::kReadAheadReports);
  }

  /// False if there is no room for it.
  [[nodiscard]] bool put(Time arrival, std::span<const std::uint8_t> report) {
    if (reports_.size() == RouterLimits::kReadAheadReports) return false;
    if (report.size() > RouterLimits::kReadAheadBytes - bytes_.size()) return false;
    bytes_.insert(bytes_.end(), report.begin(), report.end());
    reports_.push_back({arrival, report.size()});
    return true;
  }
  /// Nothing once all have been taken.
  [[nodiscard]] std::optional<Report> take() {
    if (next_ == reports_.size()) return std::nullopt;
    const Kept& kept = reports_[next_++];
    const auto bytes = std::span<const std::uint8_t>(bytes_).subspan(begin_, kept.length);
    begin_ += kept.length;
    return Report{kept.arrival, bytes};
  }
  /// Whether none has been put in since it was cleared.
  [[nodiscard]] bool isEmpty() const { return reports_.empty(); }
  void clear() {
    bytes_.clear();
    reports_.clear();
    next_ = 0;
    begin_ = 0;
  }

 private:
  struct Kept {
    Time arrival;
    std::size_t length = 0;
  };

  std::vector<std::uint8_t> bytes_;  // reports, one after the other
  std::vector<Kept> reports_;
  std::size_t next_ = 0;   // which one is taken next
  std::size_t begin_ = 0;  // where it begins
};

}  // namespace router
