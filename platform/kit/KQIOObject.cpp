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

bool KQIOObject::isEqual(const NSObject* other) const {
  const auto* object = dynamic_cast<const KQIOObject*>(other);
  if (object == nullptr || object->registryEntryID_ != registryEntryID_) return false;
  return name_ ? name_->isEqual(object->name_) : object->name_ == nullptr;
}

std::size_t KQIOObject::hash() const {
  return static_cast<std::size_t>(registryEntryID_);
}

std::string KQIOObject::description() const {
  const std::string id = stringWithFormat("0x%lx", registryEntryID_);
  return "<KQIOObject " + id + (name_ ? " " + name_->UTF8String() : std::string()) + ">";
}

}  // namespace platform
