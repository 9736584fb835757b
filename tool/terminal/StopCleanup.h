// Cleaning up when a signal ends the command.
//
// Threading: the clean-up runs on a thread of its own, at any moment between construction and
//   destruction, at most once.
// Ownership: owns its thread; the signals must outlive it.
// Errors: Failure where the kernel refuses.
// Order: the process ends by that signal when the clean-up has returned.
#pragma once

#include <functional>
#include <thread>

#include "platform/services/FileDescriptor.h"
#include "tool/terminal/StopSignals.h"

namespace tool {

/// While it lives, a stop signal runs `cleanUp` and then ends the process. One that came before,
/// while the signals were already held back, does so at once.
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
  platform::FileDescriptor over_;  // readable once there is nothing more to clean up
  std::thread thread_;
};

}  // namespace tool
