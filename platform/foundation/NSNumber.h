// SPDX-License-Identifier: Apache-2.0

// Immutable numbers.
//
// Threading, Ownership, Errors, Order: as in NSObject.h.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"

namespace platform {

/// A boolean, a signed or unsigned 64-bit integer or a double. Equality is by numeric value across
/// all four kinds (exact: 2^63 is not equal to the double nearest to 2^63 + 1 unless they are the
/// same number).
class WLHID_EXPORT NSNumber final : public NSObject {
 public:
  using Value = std::variant<bool, std::int64_t, std::uint64_t, double>;

  static const NSClass& classObject();
  static std::shared_ptr<NSNumber> numberWithBool(bool value);
  static std::shared_ptr<NSNumber> numberWithLongLong(std::int64_t value);
  static std::shared_ptr<NSNumber> numberWithUnsignedLongLong(std::uint64_t value);
  static std::shared_ptr<NSNumber> numberWithDouble(double value);

  [[nodiscard]] const Value& value() const { return value_; }
  [[nodiscard]] bool boolValue() const;
  /// Integers out of range wrap (two's complement); doubles saturate.
  [[nodiscard]] std::int64_t longLongValue() const;
  [[nodiscard]] std::uint64_t unsignedLongLongValue() const;
  [[nodiscard]] double doubleValue() const;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// Booleans print as 1 and 0; doubles as the shortest text that reads back the same ("%.17g" at
  /// most).
  [[nodiscard]] std::string description() const override;

  explicit NSNumber(Value value) : value_(value) {}

 protected:
  /// By kind, then by value; not in numerical order.
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  const Value value_;
};

/// An order in which 0 and -0 are equal, and all NaNs are equal and come last.
[[nodiscard]] WLHID_EXPORT std::strong_ordering orderOfNumbers(double a, double b);

}  // namespace platform
