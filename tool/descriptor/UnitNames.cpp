// SPDX-License-Identifier: Apache-2.0

#include "tool/descriptor/UnitNames.h"

#include <array>
#include <cmath>
#include <string_view>

namespace tool {

namespace {

constexpr std::size_t kSystems = 4;
constexpr std::size_t kDimensions = 6;  // length or angle, mass, time, temperature, current, light
constexpr std::uint32_t kVendorSystem = 0xf;

constexpr std::array<std::string_view, kSystems> kSystemNames = {
    "SI linear", "SI rotation", "English linear", "English rotation"};
constexpr std::array<std::array<std::string_view, kDimensions>, kSystems> kSymbols = {{
    {"cm", "g", "s", "K", "A", "cd"},
    {"rad", "g", "s", "K", "A", "cd"},
    {"in", "slug", "s", "°F", "A", "cd"},
    {"deg", "slug", "s", "°F", "A", "cd"},
}};

/// Four bits of two's complement.
int powerIn(std::uint32_t nibble) {
  return nibble < 8 ? static_cast<int>(nibble) : static_cast<int>(nibble) - 16;
}

bool hasPhysicalRange(const router::ReportField& field) {
  return field.physicalMinimum != 0 || field.physicalMaximum != 0;
}

}  // namespace

std::string unitSystem(std::uint32_t unit) {
  const std::uint32_t system = unit & 0xfU;
  if (system == kVendorSystem) return "vendor-defined";
  if (system > kSystems) return "reserved";
  return system == 0 ? std::string() : std::string(kSystemNames[system - 1]);
}

std::string unitName(std::uint32_t unit) {
  const std::uint32_t system = unit & 0xfU;
  if (system == 0 || system > kSystems) return {};
  std::string name;
  for (std::size_t i = 0; i < kDimensions; ++i) {
    const int power = powerIn(unit >> (4 * (i + 1)) & 0xfU);
    if (power == 0) continue;
    name += (name.empty() ? "" : "·") + std::string(kSymbols[system - 1][i]);
    if (power != 1) name += "^" + std::to_string(power);
  }
  return name;
}

std::string scaled(std::int64_t value, std::int32_t exponent) {
  constexpr std::int32_t kMostDigits = 9;
  std::string digits = std::to_string(value);
  if (exponent == 0 || value == 0) return digits;
  if (exponent > kMostDigits || exponent < -kMostDigits)
    return digits + "e" + std::to_string(exponent);
  if (exponent > 0) return digits + std::string(static_cast<std::size_t>(exponent), '0');
  const std::string sign = value < 0 ? "-" : "";
  digits.erase(0, sign.size());
  const auto decimals = static_cast<std::size_t>(-exponent);
  if (digits.size() <= decimals) digits.insert(0, decimals + 1 - digits.size(), '0');
  digits.insert(digits.size() - decimals, ".");
  digits.erase(digits.find_last_not_of('0') + 1);
  if (digits.ends_with('.')) digits.pop_back();
  return sign + digits;
}

std::string physicalRange(const router::ReportField& field) {
  const std::string unit = unitName(field.unit);
  const bool isLogical = field.unitExponent == 0 && field.physicalMinimum == field.logicalMinimum &&
                         field.physicalMaximum == field.logicalMaximum;
  const bool own = hasPhysicalRange(field);
  if ((!own || isLogical) && unit.empty()) return {};
  return scaled(own ? field.physicalMinimum : field.logicalMinimum, field.unitExponent) + " to " +
         scaled(own ? field.physicalMaximum : field.logicalMaximum, field.unitExponent) +
         (unit.empty() ? "" : " ") + unit;
}

std::optional<double> valuesPerUnit(const router::ReportField& field) {
  const double logical =
      static_cast<double>(field.logicalMaximum) - static_cast<double>(field.logicalMinimum);
  const double physical = hasPhysicalRange(field) ? static_cast<double>(field.physicalMaximum) -
                                                        static_cast<double>(field.physicalMinimum)
                                                  : logical;
  if (unitName(field.unit).empty() || logical <= 0 || physical <= 0) return std::nullopt;
  const double values = logical / (physical * std::pow(10.0, field.unitExponent));
  if (values == 0 || !std::isfinite(values)) return std::nullopt;  // an exponent beyond all sense
  return values;
}

}  // namespace tool
