// SPDX-License-Identifier: Apache-2.0

// The directories of a root that the daemon works in, opened and checked.
//
// Threading: one thread.
// Ownership: owns the descriptors.
// Errors: ServiceError if the root or one of its directories is a symbolic link, belongs to another
//   user or can be written by others. Anyone who can write there decides what runs, so the daemon
//   serves only roots that are entirely its own user's, and never runs with rights that the root's
//   owner lacks.
#pragma once

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"

namespace jobd {

struct RootDirectories {
  platform::FileDescriptor root;
  platform::FileDescriptor jobs;     ///< Library/LaunchDaemons
  platform::FileDescriptor tools;    ///< Library/PrivilegedHelperTools
  platform::FileDescriptor run;      ///< var/run
  platform::FileDescriptor log;      ///< var/log
  platform::FileDescriptor staging;  ///< of the system's own root: for the daemon alone

  /// Opens those of a user's root, creating the missing ones.
  [[nodiscard]] static RootDirectories open(const platform::SystemRoot& root);
  /// Opens those of the system's own root that the daemon writes to: jobs and tools of the layer of
  /// applications, and staging.
  [[nodiscard]] static RootDirectories openSystem(const platform::SystemRoot& root);
};

}  // namespace jobd
