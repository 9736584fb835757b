// What the foundation asks of the machine, as one small interface, so that a scripted platform can
// stand in for it.
//
// Threading: a provider is called from any thread.
// Ownership: see ProviderSlot.h.
// Errors: as the public functions say.
#pragma once

#include <functional>
#include <string_view>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/ProviderSlot.h"

namespace platform {

class FoundationProvider {
 public:
  virtual ~FoundationProvider() = default;
  virtual std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) = 0;
  /// Hands a regular file's bytes piece by piece to `look` and then to `take`, until either returns
  /// false or the file ends. Each is called for one piece after another, but `look` perhaps on
  /// another thread, for pieces that `take` has yet to get, and must not throw. 0, or the errno of
  /// what failed; pieces may have been handed out by then. A provider that does not say otherwise
  /// hands out what dataWithContentsOfFile gives, or fails with ENOENT.
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

/// The process's foundation; never destroyed.
ProviderSlot<FoundationProvider>& foundationProvider();

/// The provider that asks the machine itself.
std::shared_ptr<FoundationProvider> machineFoundationProvider();

}  // namespace platform
