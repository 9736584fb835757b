// SPDX-License-Identifier: Apache-2.0

// The first page of a report: what is wrong in ten lines, and what was found.
//
// Without input it holds this program's own words and shown values, like the rest of the report.
//
// Threading: any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tool/findings/Diagnosis.h"
#include "tool/findings/Inventory.h"
#include "tool/report/ReportOrigin.h"
#include "tool/report/ShownLines.h"
#include "tool/routing/Trial.h"

namespace tool {

/// Plain text.
struct Summary {
  struct Fault {
    std::string check;
    std::string fault;
    std::string advice;
  };
  struct Row {
    std::string name;
    std::string text;
  };
  std::string verdict;
  bool inOrder = false;
  std::vector<Fault> faults;  ///< each after those that may be its cause
  std::vector<Row> rows;
  std::string note;  ///< what is not on the page, and where to find it
};

/// What it is made from.
struct SummarySources {
  const Inventory& inventory;
  const Diagnosis& diagnosis;
  const ReportOrigin& origin;
  std::optional<TrialResult> trial{};      ///< if a device was tried
  std::optional<std::string> lastError{};  ///< a line of the system log
};

/// `whole`: with everything that is private.
[[nodiscard]] Summary summaryOf(const SummarySources& sources, bool whole, DeviceOrder& devices);
/// As a page for a browser, which needs neither a network nor scripts. Its first ten lines are the
/// verdict and the first faults, however many there are.
[[nodiscard]] std::string summaryPage(const Summary& summary);

}  // namespace tool
