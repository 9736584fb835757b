// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSNumber.h"

#include <cmath>
#include <limits>
#include <type_traits>

#include "platform/foundation/Text.h"

namespace platform {
namespace {

constexpr double kTwoTo63 = 0x1p63;
constexpr double kTwoTo64 = 0x1p64;

/// A number in canonical form, so that equal numbers have equal forms: a whole number that fits is
/// an integer (unsigned only above the signed range); any other is a double.
using Canonical = std::variant<std::int64_t, std::uint64_t, double>;

Canonical canonical(std::uint64_t value) {
  if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return value;
  return static_cast<std::int64_t>(value);
}

Canonical canonical(double value) {
  if (std::trunc(value) != value) return value;
  if (value >= -kTwoTo63 && value < kTwoTo63) return static_cast<std::int64_t>(value);
  if (value >= kTwoTo63 && value < kTwoTo64) return static_cast<std::uint64_t>(value);
  return value;
}

Canonical canonical(const NSNumber::Value& value) {
  return std::visit(
      [](auto v) -> Canonical {
        using V = decltype(v);
        if constexpr (std::is_same_v<V, bool>)
          return static_cast<std::int64_t>(v);
        else if constexpr (std::is_same_v<V, std::int64_t>)
          return v;
        else
          return canonical(v);
      },
      value);
}

template <class Integer>
Integer saturated(double value, double lowest, double beyond) {
  if (std::isnan(value)) return 0;
  if (value <= lowest) return std::numeric_limits<Integer>::min();
  if (value >= beyond) return std::numeric_limits<Integer>::max();
  return static_cast<Integer>(value);
}

}  // namespace

const NSClass& NSNumber::classObject() {
  static const NSClass object{"NSNumber", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSNumber> NSNumber::numberWithBool(bool value) {
  return std::make_shared<NSNumber>(Value(value));
}

std::shared_ptr<NSNumber> NSNumber::numberWithLongLong(std::int64_t value) {
  return std::make_shared<NSNumber>(Value(value));
}

std::shared_ptr<NSNumber> NSNumber::numberWithUnsignedLongLong(std::uint64_t value) {
  return std::make_shared<NSNumber>(Value(value));
}

std::shared_ptr<NSNumber> NSNumber::numberWithDouble(double value) {
  return std::make_shared<NSNumber>(Value(value));
}

bool NSNumber::boolValue() const {
  return std::visit([](auto v) { return v != decltype(v){}; }, value_);
}

std::int64_t NSNumber::longLongValue() const {
  if (const auto* real = std::get_if<double>(&value_)) {
    return saturated<std::int64_t>(*real, -kTwoTo63, kTwoTo63);
  }
  return std::visit([](auto v) { return static_cast<std::int64_t>(v); }, value_);
}

std::uint64_t NSNumber::unsignedLongLongValue() const {
  if (const auto* real = std::get_if<double>(&value_)) {
    return saturated<std::uint64_t>(*real, 0, kTwoTo64);
  }
  return std::visit([](auto v) { return static_cast<std::uint64_t>(v); }, value_);
}

double NSNumber::doubleValue() const {
  return std::visit([](auto v) { return static_cast<double>(v); }, value_);
}

std::strong_ordering NSNumber::compareValue(const NSObject& other) const {
  const Canonical mine = canonical(value_);
  const Canonical theirs = canonical(static_cast<const NSNumber&>(other).value_);
  if (mine.index() != theirs.index()) return mine.index() <=> theirs.index();
  if (const auto* real = std::get_if<double>(&mine))
    return orderOfNumbers(*real, std::get<double>(theirs));
  if (const auto* integer = std::get_if<std::int64_t>(&mine))
    return *integer <=> std::get<std::int64_t>(theirs);
  return std::get<std::uint64_t>(mine) <=> std::get<std::uint64_t>(theirs);
}

std::string NSNumber::description() const {
  if (const auto* flag = std::get_if<bool>(&value_)) return *flag ? "1" : "0";
  if (const auto* integer = std::get_if<std::int64_t>(&value_)) return std::to_string(*integer);
  if (const auto* integer = std::get_if<std::uint64_t>(&value_)) return std::to_string(*integer);
  return shortestText(std::get<double>(value_));
}

std::strong_ordering orderOfNumbers(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) <=> std::isnan(b);
  if (a < b) return std::strong_ordering::less;
  return a > b ? std::strong_ordering::greater : std::strong_ordering::equal;
}

}  // namespace platform
