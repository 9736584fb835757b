// SPDX-License-Identifier: Apache-2.0

#include "platform/kit/KQIOObject.h"

#include "platform/foundation/Format.h"

namespace platform {

const NSClass& KQIOObject::classObject() {
  static const NSClass object{"KQIOObject", &NSObject::classObject()};
  return object;
}

std::shared_ptr<KQIOObject> KQIOObject::objectWithRegistryEntryID_name(
    std::uint64_t registryEntryID, std::shared_ptr<NSString> name) {
  return std::make_shared<KQIOObject>(registryEntryID, std::move(name));
}

std::strong_ordering KQIOObject::compareValue(const NSObject& other) const {
  const auto& object = static_cast<const KQIOObject&>(other);
  if (registryEntryID_ != object.registryEntryID_)
    return registryEntryID_ <=> object.registryEntryID_;
  return compare(name_.get(), object.name_.get());
}

std::string KQIOObject::description() const {
  const std::string id = stringWithFormat("0x%lx", registryEntryID_);
  return "<KQIOObject " + id + (name_ ? " " + name_->UTF8String() : std::string()) + ">";
}

}  // namespace platform
