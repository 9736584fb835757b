#include "platform/foundation/NSObject.h"

#include <functional>

#include "platform/foundation/Format.h"
#include "platform/foundation/Text.h"

namespace platform {

bool NSClass::isSubclassOfClass(const NSClass& other) const {
  for (const NSClass* c = this; c != nullptr; c = c->superclass) {
    if (c == &other) return true;
  }
  return false;
}

const NSClass& NSObject::classObject() {
  static constexpr NSClass object{"NSObject", nullptr};
  return object;
}

std::size_t NSObject::hash() const {
  return std::hash<const void*>{}(this);
}

std::string NSObject::description() const {
  return stringWithFormat("<%s: %p>", className(), static_cast<const void*>(this));
}

std::string NSObject::descriptionWithIndent(std::size_t) const {
  return quotedWhereNeeded(description());
}

std::string descriptionOf(const std::shared_ptr<NSObject>& object) {
  return object ? object->description() : "(null)";
}

}  // namespace platform
