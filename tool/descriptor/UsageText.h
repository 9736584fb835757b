// SPDX-License-Identifier: Apache-2.0

// Usages in words, where they have names.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <string>

#include "router/ReportDescriptor.h"

namespace tool {

/// Whether a usage has a name; the others appear as numbers.
[[nodiscard]] bool hasUsageName(std::uint32_t page, std::uint32_t usage);
/// "A", "A to Application"; if an end of a range has no name, "Keyboard 0x00 to 0x91".
[[nodiscard]] std::string usageText(const router::UsageRange& range);

}  // namespace tool
