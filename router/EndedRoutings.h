// SPDX-License-Identifier: Apache-2.0

// Routings that the router has ended for good, until their client has been told.
//
// A client whose connection ends asks again by itself. That request is answered with the reason of
// the end; only another one routes the device once more.
//
// Threading: any thread.
// Order: of too many, the latest are remembered.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "platform/foundation/NSError.h"
#include "router/RouterLimits.h"

namespace router {

class EndedRoutings {
 public:
  explicit EndedRoutings(const RouterLimits& limits)
      : most_(limits.sessions), lifetime_(limits.endedRoutingLifetime) {}

  /// The next start request of that process for that device is to be answered with this error.
  void note(pid_t process, std::uint64_t device, std::shared_ptr<platform::NSError> answer);
  /// The answer, or null. It counts as told from then on.
  [[nodiscard]] std::shared_ptr<platform::NSError> take(pid_t process, std::uint64_t device);

 private:
  using Clock = std::chrono::steady_clock;
  struct Ended {
    pid_t process = -1;
    std::uint64_t device = 0;
    std::shared_ptr<platform::NSError> answer;
    Clock::time_point at;
  };

  const std::size_t most_;
  const std::chrono::seconds lifetime_;
  std::mutex mutex_;
  std::deque<Ended> ended_;
};

}  // namespace router
