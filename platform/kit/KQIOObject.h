// SPDX-License-Identifier: Apache-2.0

// A reference to an I/O registry object, which the router's errors may contain.
//
// Threading, Ownership, Errors, Order: as in NSObject.h.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"

namespace platform {

class KQIOObject final : public NSObject {
 public:
  static const NSClass& classObject();
  /// `name` may be null.
  static std::shared_ptr<KQIOObject> objectWithRegistryEntryID_name(std::uint64_t registryEntryID,
                                                                    std::shared_ptr<NSString> name);

  [[nodiscard]] std::uint64_t registryEntryID() const { return registryEntryID_; }
  [[nodiscard]] const std::shared_ptr<NSString>& name() const { return name_; }

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// "<KQIOObject 0x100000abc name>"
  [[nodiscard]] std::string description() const override;

  KQIOObject(std::uint64_t registryEntryID, std::shared_ptr<NSString> name)
      : registryEntryID_(registryEntryID), name_(std::move(name)) {}

 protected:
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  const std::uint64_t registryEntryID_;
  const std::shared_ptr<NSString> name_;
};

}  // namespace platform
