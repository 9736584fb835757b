// The directories of a root that the daemon works in, open and checked.
//
// Threading: one thread.
// Ownership: the descriptors.
// Errors: ServiceError when the root or one of its directories is a link, belongs to somebody else
//   or can be written by others. Whoever can write there decides what runs, so the daemon serves no
//   root that is not wholly its own user's: it never runs with rights that the root's owner lacks.
#pragma once

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"

namespace jobd {

struct RootDirectories {
  platform::FileDescriptor root;
  platform::FileDescriptor jobs;   ///< Library/LaunchDaemons
  platform::FileDescriptor tools;  ///< Library/PrivilegedHelperTools
  platform::FileDescriptor run;    ///< var/run
  platform::FileDescriptor log;    ///< var/log

  /// Opens them, making those that are missing.
  [[nodiscard]] static RootDirectories open(const platform::SystemRoot& root);
};

}  // namespace jobd
