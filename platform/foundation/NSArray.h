// SPDX-License-Identifier: Apache-2.0

// Ordered collections.
//
// Threading: NSArray is immutable. NSMutableArray is not synchronised: one thread at a time while
//   any thread mutates it.
// Ownership: an array holds its members strongly. A subclass may store its members inside its own
//   allocation and return pointers that alias the array (as arrays of element values do).
// Errors: NSRangeException for an index out of range; NSGenericException if a mutable array changes
//   during enumeration.
// Order: enumeration goes from index 0 upward.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"

namespace platform {

/// Raised if a collection changes during enumeration.
class WLHID_EXPORT NSGenericException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class WLHID_EXPORT NSArray : public NSObject {
 public:
  static const NSClass& classObject();
  /// Null members are not allowed (std::invalid_argument).
  static std::shared_ptr<NSArray> arrayWithObjects(std::vector<std::shared_ptr<NSObject>> objects);

  [[nodiscard]] virtual std::size_t count() const = 0;
  /// Throws NSRangeException.
  [[nodiscard]] virtual std::shared_ptr<NSObject> objectAtIndex(std::size_t index) const = 0;

  /// Calls `body` for each member in order. Throws NSGenericException after a call that changed the
  /// array.
  void enumerateObjects(const std::function<void(const std::shared_ptr<NSObject>&)>& body) const;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// "(\n    1,\n    abc\n)"
  [[nodiscard]] std::string description() const override;
  [[nodiscard]] std::string descriptionWithIndent(std::size_t indent) const override;

 protected:
  /// Counts changes; always 0 for an immutable array.
  [[nodiscard]] virtual std::size_t mutations() const { return 0; }

  [[nodiscard]] const NSClass& valueClass() const override { return NSArray::classObject(); }
  /// Arrays of any class are equal if they have the same count and equal members at each index.
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;
};

class WLHID_EXPORT NSMutableArray : public NSArray {
 public:
  static const NSClass& classObject();
  static std::shared_ptr<NSMutableArray> array();
  static std::shared_ptr<NSMutableArray> arrayWithObjects(
      std::vector<std::shared_ptr<NSObject>> objects);

  /// Throws std::invalid_argument for null.
  virtual void addObject(const std::shared_ptr<NSObject>& object) = 0;
  /// Throws NSRangeException.
  virtual void removeObjectAtIndex(std::size_t index) = 0;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
};

}  // namespace platform
