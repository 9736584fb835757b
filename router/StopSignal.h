// SPDX-License-Identifier: Apache-2.0

// A stop request that a waiting thread notices at once, either on its own or together with a
// descriptor that it polls.
//
// Threading: any thread.
// Ownership: owns one descriptor.
// Errors: the constructor throws std::system_error.
// Order: what happened before raise() is visible to a thread that sees it raised.
#pragma once

#include <atomic>
#include <chrono>

namespace router {

class StopSignal {
 public:
  StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;
  ~StopSignal();

  void raise();
  [[nodiscard]] bool isRaised() const { return raised_.load(std::memory_order_acquire); }
  /// Returns at the deadline (false), or as soon as the signal is raised (true). The clock is
  /// CLOCK_MONOTONIC.
  [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point deadline) const;
  /// Readable once the signal is raised.
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  std::atomic<bool> raised_{false};
  int descriptor_;
};

}  // namespace router
