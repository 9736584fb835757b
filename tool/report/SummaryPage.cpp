// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <span>

#include "tool/picture/Html.h"
#include "tool/picture/Svg.h"
#include "tool/report/Summary.h"

namespace tool {

namespace {

std::string tableRow(const std::string& name, const std::string& content) {
  return "<tr><th scope=\"row\">" + escaped(name) + "</th><td>" + content + "</td></tr>\n";
}

std::string section(const std::string& title, const std::string& rows) {
  return "<section><h2>" + title + "</h2>\n<table>\n" + rows + "</table></section>\n";
}

/// So many that with the verdict they are the page's first ten lines. A check comes after those
/// that it depends on, so the first fault is often the cause of the others.
constexpr std::size_t kFirstFaults = 3;

using Faults = std::span<const Summary::Fault>;

std::string faultSection(const std::string& title, Faults faults) {
  std::string rows;
  for (const Summary::Fault& fault : faults)
    rows += tableRow(fault.check, "<span class=\"fault\">" + escaped(fault.fault) + "</span> → " +
                                      escaped(fault.advice));
  return rows.empty() ? rows : section(title, rows);
}

std::string firstFaults(Faults faults) {
  std::string text = faultSection("What is wrong → what helps",
                                  faults.first(std::min(kFirstFaults, faults.size())));
  if (faults.size() <= kFirstFaults) return text;
  return text + "<p class=\"note\">and " + std::to_string(faults.size() - kFirstFaults) +
         " more, below</p>\n";
}

std::string otherFaults(Faults faults) {
  return faultSection("What else is wrong → what helps",
                      faults.subspan(std::min(kFirstFaults, faults.size())));
}

std::string findingSection(const Summary& summary) {
  std::string rows;
  for (const Summary::Row& row : summary.rows) rows += tableRow(row.name, escaped(row.text));
  return section("What was found", rows);
}

}  // namespace

std::string summaryPage(const Summary& summary) {
  return documentHead("Diagnostic report") +
         "<body>\n<header><h1>Diagnostic report of the HID event router</h1>\n<p class=\"verdict" +
         (summary.inOrder ? "" : " fault") + "\">" + escaped(summary.verdict) +
         "</p></header>\n<main>\n" + firstFaults(summary.faults) + findingSection(summary) +
         otherFaults(summary.faults) + "<p class=\"note\">" + escaped(summary.note) +
         "</p>\n</main>\n</body>\n</html>\n";
}

}  // namespace tool
