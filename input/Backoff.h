// SPDX-License-Identifier: Apache-2.0

// How long to wait before the next attempt: longer after each failure, up to a limit.
//
// Threading: one thread at a time.
#pragma once

#include <algorithm>
#include <chrono>

namespace wlhid {

class Backoff {
 public:
  using Duration = std::chrono::milliseconds;

  static constexpr Duration kFirst{100};
  static constexpr Duration kLongest{15'000};

  Duration next() {
    const Duration delay = next_;
    next_ = std::min(next_ * 2, kLongest);
    return delay;
  }
  void reset() { next_ = kFirst; }

 private:
  Duration next_ = kFirst;
};

}  // namespace wlhid
