// SPDX-License-Identifier: Apache-2.0

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

std::string faultSection(const Summary& summary) {
  std::string rows;
  for (const Summary::Fault& fault : summary.faults)
    rows += tableRow(fault.check, "<span class=\"fault\">" + escaped(fault.fault) + "</span> → " +
                                      escaped(fault.advice));
  return rows.empty() ? rows : section("What is wrong → what helps", rows);
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
         "</p></header>\n<main>\n" + faultSection(summary) + findingSection(summary) +
         "<p class=\"note\">" + escaped(summary.note) + "</p>\n</main>\n</body>\n</html>\n";
}

}  // namespace tool
