// SPDX-License-Identifier: Apache-2.0

#include "tool/measuring/Latency.h"

#include <algorithm>

namespace tool {

void Latency::arrived(std::uint64_t number, std::chrono::steady_clock::time_point time) {
  if (number == 1) {
    ++routing_;
    taken_ = 0;
  }
  here_[number % here_.size()] = time.time_since_epoch();
  latest_ = number;
}

void Latency::take(const router::ReportArrivals& router, std::uint64_t routing) {
  if (routing != routing_) return;
  const std::uint64_t oldest = latest_ - std::min<std::uint64_t>(latest_, here_.size() - 1);
  for (std::uint64_t i = 0; i < router.times.size(); ++i) {
    const std::uint64_t number = router.first + i;
    if (number <= taken_ || number < oldest) continue;
    if (number > latest_) return;
    const auto duration = here_[number % here_.size()] - router.times[i];
    // Then it is of a routing that has begun there and not here yet.
    if (duration.count() < 0) return;
    durations_.take(std::chrono::duration_cast<Durations::Time>(duration));
    taken_ = number;
  }
}

std::optional<LatencyFigures> Latency::figures() const {
  if (durations_.count() == 0) return std::nullopt;
  return LatencyFigures{durations_.count(), durations_.percentile(0.5), durations_.percentile(0.99),
                        durations_.longest()};
}

}  // namespace tool
