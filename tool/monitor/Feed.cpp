// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Feed.h"

#include <algorithm>

namespace tool::monitor {

void Feed::take(Time time, std::span<const std::uint8_t> report) {
  if (!isPaused_) return model_.take(time, report);
  if (bytes_.size() + waiting_.size() * sizeof(Waiting) + report.size() > kMostBytes) {
    ++leftOut_;
    return;
  }
  waiting_.push_back({time, bytes_.size(), report.size()});
  bytes_.insert(bytes_.end(), report.begin(), report.end());
}

void Feed::pause(Time now) {
  if (isPaused_) return;
  isPaused_ = true;
  shown_ = now;
}

void Feed::resume() {
  while (waiting() > 0) show(waiting_[next_++]);
  isPaused_ = false;
  waiting_.clear();
  bytes_.clear();
  next_ = 0;
}

void Feed::step() {
  if (isPaused_ && waiting() > 0) show(waiting_[next_++]);
}

void Feed::show(const Waiting& report) {
  model_.take(report.time, std::span(bytes_).subspan(report.begin, report.length));
  shown_ = std::max(shown_, report.time);
}

}  // namespace tool::monitor
