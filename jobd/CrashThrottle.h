// SPDX-License-Identifier: Apache-2.0

// How long a job that keeps crashing is held back.
#pragma once

#include <algorithm>
#include <chrono>

namespace jobd {

/// A job that ends within a second of its start has to wait before the next one. The first 25 such
/// ends cost 40 ms each, so that it recovers quickly from a temporary cause (a device that is not
/// ready, a disk that is full for a moment). A job that keeps crashing then waits 0.1 s, doubled
/// each time, up to 10 s. One good run resets everything. Meanwhile connections wait in the
/// endpoint's backlog, so no client spins.
class CrashThrottle {
 public:
  using Duration = std::chrono::milliseconds;
  static constexpr Duration kGoodRun{1000};
  static constexpr unsigned kLenientStarts = 25;
  static constexpr Duration kLenientDelay{40};
  static constexpr Duration kShortestDelay{100};
  static constexpr Duration kLongestDelay{10'000};

  /// The delay before the next start, given how long the job has run.
  Duration delayAfterRunOf(Duration ran) {
    if (ran >= kGoodRun) {
      *this = {};
      return Duration::zero();
    }
    if (shortRuns_ < kLenientStarts) {
      ++shortRuns_;
      return kLenientDelay;
    }
    const Duration delay = next_;
    next_ = std::min(2 * next_, kLongestDelay);
    return delay;
  }

 private:
  unsigned shortRuns_ = 0;
  Duration next_ = kShortestDelay;
};

}  // namespace jobd
