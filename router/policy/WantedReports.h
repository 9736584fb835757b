// SPDX-License-Identifier: Apache-2.0

// Which reports a device declares, and which of them a client needs that wants values of certain
// usages only.
//
// A report is needed if one of its values can pass the client's filter, whatever bits it has. All
// others need not be sent to the client.
//
// Threading: any thread.
// Errors: none.
#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include "router/ReportDescriptor.h"
#include "router/UsageFilter.h"

namespace router {

/// IDs of the input reports that can come if the device does as it says; 0 stands for the only one
/// of a descriptor without IDs.
[[nodiscard]] std::set<std::uint8_t> declaredReports(const ReportDescriptor& descriptor);

/// IDs of input reports; 0 stands for the only one of a descriptor without IDs. Empty if the filter
/// wants everything: then all reports are needed, also such as the descriptor does not name.
[[nodiscard]] std::optional<std::set<std::uint8_t>> wantedReports(
    const ReportDescriptor& descriptor, const UsageFilter& filter);

}  // namespace router
