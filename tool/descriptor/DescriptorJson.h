// SPDX-License-Identifier: Apache-2.0

// A report descriptor as JSON: what `wlhid descriptor --json` prints.
//
// Threading: any thread.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "router/ReportDescriptor.h"
#include "tool/descriptor/DescriptorFaults.h"
#include "tool/descriptor/DescriptorTree.h"

namespace tool {

[[nodiscard]] nlohmann::ordered_json jsonOf(const std::vector<DescriptorNode>& tree);
[[nodiscard]] nlohmann::ordered_json jsonOf(const std::vector<DescriptorFault>& faults);
/// Type, ID and size of each report.
[[nodiscard]] nlohmann::ordered_json reportsJson(const router::ReportDescriptor& descriptor);

}  // namespace tool
