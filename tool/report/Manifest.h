// SPDX-License-Identifier: Apache-2.0

// The list of a report's parts, as JSON.
//
// Threading: any thread.
#pragma once

#include <string>

#include "tool/findings/Diagnosis.h"
#include "tool/findings/Inventory.h"
#include "tool/report/DiagnosticReport.h"
#include "tool/report/ReportOrigin.h"

namespace tool {

[[nodiscard]] std::string manifestOf(const ReportRequest& request, const ReportResult& result,
                                     const ReportOrigin& origin, const Inventory& inventory,
                                     const Diagnosis& diagnosis);

}  // namespace tool
