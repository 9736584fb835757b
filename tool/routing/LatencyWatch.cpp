// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/LatencyWatch.h"

namespace tool {

void LatencyWatch::arrived(std::uint64_t number, Clock::time_point time) {
  const std::lock_guard lock(mutex_);
  latency_.arrived(number, time);
}

void LatencyWatch::ask(std::uint64_t registryEntryID) {
  constexpr std::chrono::seconds kInterval{1};
  std::uint64_t routing = 0;
  {
    const std::lock_guard lock(mutex_);
    routing = latency_.routing();
  }
  const auto now = Clock::now();
  if (routing == 0 || now < next_) return;
  next_ = now + kInterval;
  if (router_ == nullptr) router_ = std::make_unique<RouterService>();
  const auto arrivals = router_->arrivalsOf(registryEntryID);
  if (!arrivals) return;
  const std::lock_guard lock(mutex_);
  latency_.take(*arrivals, routing);
}

std::optional<LatencyFigures> LatencyWatch::figures() const {
  const std::lock_guard lock(mutex_);
  return latency_.figures();
}

}  // namespace tool
