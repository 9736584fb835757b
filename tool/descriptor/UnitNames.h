// SPDX-License-Identifier: Apache-2.0

// Physical units and ranges of a report descriptor's fields, for people.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "router/ReportDescriptor.h"

namespace tool {

/// "cm", "cm·g·s^-2", "rad"; empty if the item's value names none.
[[nodiscard]] std::string unitName(std::uint32_t unit);
/// "SI linear", "English rotation", "vendor-defined"; empty for none.
[[nodiscard]] std::string unitSystem(std::uint32_t unit);
/// `value` times ten to the `exponent`, exactly: "21.6", "-0.05", "3e-12".
[[nodiscard]] std::string scaled(std::int64_t value, std::int32_t exponent);

/// What the field's logical range stands for: "0 to 21.6 cm"; empty if it says nothing.
[[nodiscard]] std::string physicalRange(const router::ReportField& field);
/// Logical values per unit; nothing if the field has no unit or no range.
[[nodiscard]] std::optional<double> valuesPerUnit(const router::ReportField& field);

}  // namespace tool
