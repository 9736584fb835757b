// The main bundle: where the running application lives.
//
// Threading: any thread.
// Ownership: the caller's.
// Errors: bundlePath is null where the executable's path is unknown.
#pragma once

#include "platform/foundation/NSString.h"

namespace platform {

class NSBundle {
 public:
  static std::shared_ptr<NSBundle> mainBundle();
  /// From the executable's own path: X.app/Contents/MacOS/x gives X.app, anything else its
  /// directory. Goes through the foundation provider.
  [[nodiscard]] std::shared_ptr<NSString> bundlePath() const;
};

/// The rule itself, for any executable path: "/a/X.app/Contents/MacOS/x" → "/a/X.app", "/usr/bin/x"
/// → "/usr/bin".
[[nodiscard]] std::string bundlePathForExecutable(std::string_view executablePath);

}  // namespace platform
