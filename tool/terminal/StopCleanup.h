// SPDX-License-Identifier: Apache-2.0

// Cleans up when a signal ends the command.
//
// Threading: the clean-up runs at most once, on a thread of its own, at any time between
//   construction and destruction.
// Ownership: owns its thread; the signals must outlive it.
// Errors: Failure if the kernel refuses.
// Order: the process ends by that signal after the clean-up has returned.
#pragma once

#include <functional>
#include <thread>

#include "platform/services/FileDescriptor.h"
#include "tool/terminal/StopSignals.h"

namespace tool {

/// While it lives, a stop signal runs `cleanUp` and then ends the process. A signal that was
/// already pending does so at once.
class StopCleanup {
 public:
  StopCleanup(StopSignals& signals, std::function<void()> cleanUp);
  ~StopCleanup();
  StopCleanup(const StopCleanup&) = delete;
  StopCleanup& operator=(const StopCleanup&) = delete;

 private:
  void watch() const;

  const std::function<void()> cleanUp_;
  StopSignals& signals_;
  platform::FileDescriptor over_;  // readable when there is nothing left to clean up
  std::thread thread_;
};

}  // namespace tool
