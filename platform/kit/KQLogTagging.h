// SPDX-License-Identifier: Apache-2.0

// Implemented by an object that logs under tags.
#pragma once

#include <memory>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSArray.h"

namespace platform {

/// The method is optional: null if not implemented.
class WLHID_EXPORT KQLogTagging {
 public:
  [[nodiscard]] virtual std::shared_ptr<NSArray> logTags() const { return nullptr; }

 protected:
  ~KQLogTagging() = default;
};

}  // namespace platform
