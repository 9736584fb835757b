// SPDX-License-Identifier: Apache-2.0

// Forwards everything to another provider; base class for a provider that changes some of it.
//
// Threading, Errors, Order: as the next provider.
// Ownership: keeps the next provider.
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"

namespace platform {

class ForwardingFoundationProvider : public FoundationProvider {
 public:
  explicit ForwardingFoundationProvider(
      std::shared_ptr<FoundationProvider> next = machineFoundationProvider())
      : next_(std::move(next)) {}

  std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) override {
    return next_->dataWithContentsOfFile(path);
  }
  int readFile(const std::shared_ptr<NSString>& path, const PieceHandler& look,
               const PieceHandler& take) override {
    return next_->readFile(path, look, take);
  }
  std::shared_ptr<NSString> mainBundlePath() override { return next_->mainBundlePath(); }
  std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>& data,
                                                 NSPropertyListFormat* returnFormat,
                                                 std::shared_ptr<NSError>* returnError) override {
    return next_->propertyListWithData(data, returnFormat, returnError);
  }
  std::shared_ptr<NSNotificationCenter> defaultCenter() override { return next_->defaultCenter(); }
  void log(std::string_view text) override { next_->log(text); }

 private:
  const std::shared_ptr<FoundationProvider> next_;
};

}  // namespace platform
