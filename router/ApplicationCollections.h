// SPDX-License-Identifier: Apache-2.0

// What a device is for, in the words of its report descriptor: the usages of its outermost
// collections.
//
// Read without parsing the rest, so that a device whose descriptor has an error further down can
// still be found and named.
//
// Threading: any thread.
// Errors: none; what precedes an item that is cut off counts.
// Order: that of the descriptor, each usage once.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "router/ReportDescriptor.h"

namespace router {

/// At most RouterLimits::kListedCollections.
[[nodiscard]] std::vector<Usage> applicationCollections(
    std::span<const std::uint8_t> reportDescriptor);

}  // namespace router
