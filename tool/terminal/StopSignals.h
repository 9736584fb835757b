// SPDX-License-Identifier: Apache-2.0

// The signals that end a running command cleanly.
//
// Threading: created on the main thread before any other thread, so that all threads inherit the
//   blocked signals.
// Ownership: owns its descriptor.
// Errors: Failure if the kernel refuses.
#pragma once

#include <csignal>

namespace tool {

/// While it lives, SIGINT, SIGTERM and SIGHUP do not end the process but make a descriptor
/// readable. A SIGHUP that is ignored already stays so: a command that nohup has started goes on
/// after a hang-up.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Readable once a signal has arrived.
  [[nodiscard]] int descriptor() const { return descriptor_; }
  /// From now on, another such signal ends the process at once.
  void unblock();

 private:
  sigset_t signals_;
  int descriptor_;
};

}  // namespace tool
