// SPDX-License-Identifier: Apache-2.0

// The small interface through which the foundation uses the machine, so that a scripted platform
// can replace it.
//
// Threading: a provider is called from any thread.
// Ownership: see ProviderSlot.h.
// Errors: as documented for the public functions.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/ProviderSlot.h"

namespace platform {

class FoundationProvider {
 public:
  virtual ~FoundationProvider() = default;
  virtual std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) = 0;
  /// Passes a regular file's bytes piece by piece to `look` and then to `take`, until either
  /// returns false or the file ends. Each gets the pieces in order, but `look` may run on another
  /// thread, ahead of `take`, and must not throw. Returns 0 or the errno of what failed; pieces may
  /// have been passed by then. By default the file is what dataWithContentsOfFile returns, ENOENT
  /// for null.
  using PieceHandler = std::function<bool(std::string_view piece)>;
  virtual int readFile(const std::shared_ptr<NSString>& path, const PieceHandler& look,
                       const PieceHandler& take);
  virtual std::shared_ptr<NSString> mainBundlePath() = 0;
  virtual std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>& data,
                                                         NSPropertyListFormat* returnFormat,
                                                         std::shared_ptr<NSError>* returnError) = 0;
  virtual std::shared_ptr<NSNotificationCenter> defaultCenter() = 0;
  virtual void log(std::string_view text) = 0;
};

/// The process's provider; never destroyed.
ProviderSlot<FoundationProvider>& foundationProvider();

/// The provider that uses the machine itself.
std::shared_ptr<FoundationProvider> machineFoundationProvider();

}  // namespace platform
