// SPDX-License-Identifier: Apache-2.0

// Ensures that there is only one daemon per root.
//
// Threading: one thread.
// Ownership: the lock is held while the object lives, and the kernel releases it with the process.
// Errors: ServiceError.
// Order: the first to lock serves; the others notice it and step back.
#pragma once

#include <optional>
#include <utility>

#include "platform/services/FileDescriptor.h"

namespace jobd {

class DaemonLock {
 public:
  /// Locks "jobd.lock" in the open directory. Empty if another daemon serves the root: it holds the
  /// lock and accepts connections. Waits up to 10 s for one that is starting or ending.
  [[nodiscard]] static std::optional<DaemonLock> acquire(int runDirectory);

 private:
  explicit DaemonLock(platform::FileDescriptor file) : file_(std::move(file)) {}
  platform::FileDescriptor file_;
};

}  // namespace jobd
