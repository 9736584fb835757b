// The root of the platform's object model: class identity, order, equality and description.
//
// Threading: every class of this folder whose name lacks "Mutable" is immutable after creation and
//   may be used from any thread without further care.
// Ownership: objects live in std::shared_ptr. A null pointer is nil.
#pragma once

#include <compare>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// What a class is called and what it derives from. One constant object a class, compared by
/// address.
struct NSClass {
  std::string_view name;
  const NSClass* superclass = nullptr;

  /// Whether this class is `other` or derives from it.
  [[nodiscard]] bool isSubclassOfClass(const NSClass& other) const;
};

class NSObject {
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

  /// Orders any two objects, null before everything: by value where their class has one, else by
  /// where they are. Collections find their members with it: unlike a hash, it can't be made to
  /// collide. Between classes the order holds for this process only.
  [[nodiscard]] static std::strong_ordering compare(const NSObject* a, const NSObject* b);

  /// Value equality where the class has a value, identity otherwise. Null is equal to nothing.
  [[nodiscard]] bool isEqual(const NSObject* other) const {
    return std::is_eq(compare(this, other));
  }
  [[nodiscard]] bool isEqual(const std::shared_ptr<NSObject>& other) const {
    return isEqual(other.get());
  }

  /// The text that "%@" prints, UTF-8. For a plain object "<NSObject: 0x…>".
  [[nodiscard]] virtual std::string description() const;

  /// The text of this object inside the description of a collection: strings are quoted there where
  /// needed, and nested collections are indented. `indent` counts levels of four blanks.
  [[nodiscard]] virtual std::string descriptionWithIndent(std::size_t indent) const;

 protected:
  /// The class whose values this object's compare with: that of arrays for a mutable array.
  [[nodiscard]] virtual const NSClass& valueClass() const { return isa(); }
  /// For compare(); `other` has the same value class.
  [[nodiscard]] virtual std::strong_ordering compareValue(const NSObject& other) const;
};

/// The object as a `T`, or null if it is none (or null itself).
template <class T>
[[nodiscard]] std::shared_ptr<T> objectCast(const std::shared_ptr<NSObject>& object) {
  return std::dynamic_pointer_cast<T>(object);
}

/// The text that "%@" prints for a pointer that may be null: "(null)" for null.
[[nodiscard]] std::string descriptionOf(const std::shared_ptr<NSObject>& object);

}  // namespace platform
