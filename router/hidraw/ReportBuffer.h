// SPDX-License-Identifier: Apache-2.0

// A limited number of reports in one piece of memory, handed out in the order in which they were
// put in.
//
// Threading: one thread at a time.
// Ownership: a report is valid until the buffer is cleared or destroyed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "router/RouterLimits.h"

namespace router {

class ReportBuffer {
 public:
  ReportBuffer() {
    bytes_.reserve(RouterLimits::kReadAheadBytes);
    lengths_.reserve(RouterLimits::kReadAheadReports);
  }

  /// False if there is no room for it.
  [[nodiscard]] bool put(std::span<const std::uint8_t> report) {
    if (lengths_.size() == RouterLimits::kReadAheadReports) return false;
    if (report.size() > RouterLimits::kReadAheadBytes - bytes_.size()) return false;
    bytes_.insert(bytes_.end(), report.begin(), report.end());
    lengths_.push_back(report.size());
    return true;
  }
  /// Nothing once all have been taken.
  [[nodiscard]] std::optional<std::span<const std::uint8_t>> take() {
    if (next_ == lengths_.size()) return std::nullopt;
    const auto report = std::span<const std::uint8_t>(bytes_).subspan(begin_, lengths_[next_]);
    begin_ += lengths_[next_++];
    return report;
  }
  /// Whether none has been put in since it was cleared.
  [[nodiscard]] bool isEmpty() const { return lengths_.empty(); }
  void clear() {
    bytes_.clear();
    lengths_.clear();
    next_ = 0;
    begin_ = 0;
  }

 private:
  std::vector<std::uint8_t> bytes_;   // reports, one after the other
  std::vector<std::size_t> lengths_;  // theirs
  std::size_t next_ = 0;              // which one is taken next
  std::size_t begin_ = 0;             // where it begins
};

}  // namespace router
