// SPDX-License-Identifier: Apache-2.0

// What is in order on a system root and what is not, with remedies.
//
// Threading: any thread.
// Order: checks in the order in which routing needs them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tool/findings/Check.h"
#include "tool/findings/Inventory.h"

namespace tool {

struct Diagnosis {
  std::string verdict;  ///< one sentence
  bool inOrder = false;
  std::vector<Check> checks;
};

[[nodiscard]] Diagnosis diagnose(const Inventory& inventory);
/// "passed", "failed", "not asked"
[[nodiscard]] std::string_view textOf(Check::State state);
/// The verdict and a line per check; `colours`: with escapes for a terminal that shows colours.
[[nodiscard]] std::string linesOf(const Diagnosis& diagnosis, bool colours);

}  // namespace tool
