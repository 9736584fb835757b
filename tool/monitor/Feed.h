// SPDX-License-Identifier: Apache-2.0

// Reports on their way to the screen: while it is paused they wait, and each step shows one.
//
// Threading: one thread at a time.
// Ownership: the model must outlive it.
// Order: as taken.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tool/monitor/DeviceModel.h"

namespace tool::monitor {

class Feed {
 public:
  /// So many bytes wait at most; what comes then is not shown.
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20U;

  explicit Feed(DeviceModel& model) : model_(model) {}

  void take(Time time, std::span<const std::uint8_t> report);
  void pause(Time now);
  /// Shows what has been waiting.
  void resume();
  /// Shows the next report, if one waits.
  void step();

  [[nodiscard]] bool isPaused() const { return isPaused_; }
  [[nodiscard]] std::size_t waiting() const { return waiting_.size() - next_; }
  /// Reports that were not shown.
  [[nodiscard]] std::uint64_t leftOut() const { return leftOut_; }
  /// The time that the screen shows: it stands still while it is paused.
  [[nodiscard]] Time shownAt(Time now) const { return isPaused_ ? shown_ : now; }

 private:
  struct Waiting {
    Time time{};
    std::size_t begin = 0;
    std::size_t length = 0;
  };
  void show(const Waiting& report);

  DeviceModel& model_;
  bool isPaused_ = false;
  Time shown_{};
  std::vector<Waiting> waiting_;
  std::size_t next_ = 0;  // of those that wait
  std::vector<std::uint8_t> bytes_;
  std::uint64_t leftOut_ = 0;
};

}  // namespace tool::monitor
