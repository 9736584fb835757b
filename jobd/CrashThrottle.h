// How long a job that keeps crashing is held back.
//
// Threading, Ownership, Errors, Order: a plain value.
#pragma once

#include <algorithm>
#include <chrono>

namespace jobd {

/// A job that ends within a second of its start waits before its next. The first 25 such ends cost
/// 40 ms each, so that a cause that passes (a device that is not ready, a disk that is full for a
/// moment) is over soon after it has passed; a job that crashes on waits 0.1 s, then twice as long
/// each time, 10 s at most. One good run makes all forgotten. Connections wait in the endpoint's
/// backlog meanwhile, so no client spins.
class CrashThrottle {
 public:
  using Duration = std::chrono::milliseconds;
  static constexpr Duration goodRun{1000};
  static constexpr unsigned leniency = 25;
  static constexpr Duration lenient{40};
  static constexpr Duration shortest{100};
  static constexpr Duration longest{10'000};

  /// The delay before the next start, given how long the job ran.
  Duration delayAfterRunOf(Duration ran) {
    if (ran >= goodRun) {
      *this = {};
      return Duration::zero();
    }
    if (shortRuns_ < leniency) {
      ++shortRuns_;
      return lenient;
    }
    const Duration delay = next_;
    next_ = std::min(2 * next_, longest);
    return delay;
  }

 private:
  unsigned shortRuns_ = 0;
  Duration next_ = shortest;
};

}  // namespace jobd
