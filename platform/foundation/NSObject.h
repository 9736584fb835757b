// SPDX-License-Identifier: Apache-2.0

// The root of the platform's object model: class identity, order, equality and description.
//
// Threading: every class in this folder without "Mutable" in its name is immutable after creation
//   and may be used from any thread.
// Ownership: objects are held by std::shared_ptr. A null pointer is nil.
#pragma once

#include <compare>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/foundation/Export.h"

namespace platform {

/// A class's name and superclass. One constant object per class, compared by address.
struct WLHID_EXPORT NSClass {
  std::string_view name;
  const NSClass* superclass = nullptr;

  /// Whether this class is `other` or derives from it.
  [[nodiscard]] bool isSubclassOfClass(const NSClass& other) const;
};

class WLHID_EXPORT NSObject {
 public:
  NSObject() = default;
  NSObject(const NSObject&) = delete;
  NSObject& operator=(const NSObject&) = delete;
  virtual ~NSObject() = default;

  static const NSClass& classObject();

  /// The object's dynamic class.
  [[nodiscard]] virtual const NSClass& isa() const { return classObject(); }
  [[nodiscard]] std::string_view className() const { return isa().name; }
  [[nodiscard]] bool isKindOfClass(const NSClass& c) const { return isa().isSubclassOfClass(c); }

  /// Orders any two objects, null first: by value if their class has one, otherwise by address.
  /// Collections use it to find members: unlike a hash, it can't be made to collide. The order
  /// between classes is valid in this process only.
  [[nodiscard]] static std::strong_ordering compare(const NSObject* a, const NSObject* b);

  /// Value equality if the class has a value, identity otherwise. Nothing is equal to null.
  [[nodiscard]] bool isEqual(const NSObject* other) const {
    return std::is_eq(compare(this, other));
  }
  [[nodiscard]] bool isEqual(const std::shared_ptr<NSObject>& other) const {
    return isEqual(other.get());
  }

  /// The text that "%@" prints, UTF-8. For a plain object "<NSObject: 0x…>".
  [[nodiscard]] virtual std::string description() const;

  /// The description inside a collection's description: strings are quoted if necessary, and nested
  /// collections are indented. `indent` counts levels of four blanks.
  [[nodiscard]] virtual std::string descriptionWithIndent(std::size_t indent) const;

 protected:
  /// The class within which values are compared: NSArray for a mutable array.
  [[nodiscard]] virtual const NSClass& valueClass() const { return isa(); }
  /// For compare(); `other` has the same value class.
  [[nodiscard]] virtual std::strong_ordering compareValue(const NSObject& other) const;
};

/// The object as a `T`; null if it is null or not a `T`.
template <class T>
[[nodiscard]] std::shared_ptr<T> objectCast(const std::shared_ptr<NSObject>& object) {
  return std::dynamic_pointer_cast<T>(object);
}

/// The text that "%@" prints for a pointer that may be null: "(null)" for null.
[[nodiscard]] WLHID_EXPORT std::string descriptionOf(const std::shared_ptr<NSObject>& object);

}  // namespace platform
