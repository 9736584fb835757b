// SPDX-License-Identifier: Apache-2.0

// A set of a device's report IDs.
#pragma once

#include <bitset>

namespace router {

/// By ID; 0 stands for the reports of a device that uses no IDs.
using ReportIDs = std::bitset<256>;

[[nodiscard]] inline ReportIDs allReports() {
  return ReportIDs().set();
}

}  // namespace router
