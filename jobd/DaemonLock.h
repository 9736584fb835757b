// That there is one daemon a root.
//
// Threading: one thread. Ownership: the lock is held while the object lives, and by the kernel's
// care no longer than the
//   process. Errors: ServiceError. Order: whoever locks first serves; the others see that it does,
//   and step back.
#pragma once

#include <optional>

#include "platform/services/FileDescriptor.h"

namespace jobd {

class DaemonLock {
 public:
  /// Locks "jobd.lock" in the open directory. Nothing when another daemon serves the root: it holds
  /// the lock and takes connections. Waits, 10 s at most, for one that is just coming up or going
  /// down.
  [[nodiscard]] static std::optional<DaemonLock> acquire(int runDirectory);

 private:
  explicit DaemonLock(platform::FileDescriptor file) : file_(std::move(file)) {}
  platform::FileDescriptor file_;
};

}  // namespace jobd
