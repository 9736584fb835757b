// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSObject.h"

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

std::strong_ordering NSObject::compare(const NSObject* a, const NSObject* b) {
  if (a == b) return std::strong_ordering::equal;
  if (a == nullptr || b == nullptr) return (a != nullptr) <=> (b != nullptr);
  const NSClass* const classOfA = &a->valueClass();
  const NSClass* const classOfB = &b->valueClass();
  if (classOfA != classOfB) return std::compare_three_way{}(classOfA, classOfB);
  return a->compareValue(*b);
}

std::strong_ordering NSObject::compareValue(const NSObject& other) const {
  return std::compare_three_way{}(this, &other);
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
