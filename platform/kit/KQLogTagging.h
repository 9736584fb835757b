// An object that says under which tags it logs.
#pragma once

#include <memory>

#include "platform/foundation/NSArray.h"

namespace platform {

/// Both methods are optional: null where not implemented.
class KQLogTagging {
 public:
  [[nodiscard]] virtual std::shared_ptr<NSArray> logTags() const { return nullptr; }

 protected:
  ~KQLogTagging() = default;
};

}  // namespace platform
