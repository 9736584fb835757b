// SPDX-License-Identifier: Apache-2.0

// The main bundle: the location of the running application.
//
// Threading: any thread.
// Errors: bundlePath is null if the executable's path is unknown.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSString.h"

namespace platform {

class WLHID_EXPORT NSBundle {
 public:
  static std::shared_ptr<NSBundle> mainBundle();
  /// Derived from the executable's path: X.app/Contents/MacOS/x gives X.app, anything else its
  /// directory. Goes through the foundation provider.
  [[nodiscard]] std::shared_ptr<NSString> bundlePath() const;
};

/// The same rule for any executable path: "/a/X.app/Contents/MacOS/x" → "/a/X.app",
/// "/usr/bin/x" → "/usr/bin".
[[nodiscard]] WLHID_EXPORT std::string bundlePathForExecutable(std::string_view executablePath);

}  // namespace platform
