// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/Page.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "platform/foundation/Format.h"
#include "tool/descriptor/ClassText.h"
#include "tool/descriptor/DescriptorFaults.h"
#include "tool/descriptor/DescriptorTree.h"
#include "tool/picture/Html.h"
#include "tool/picture/PackedReports.h"
#include "tool/picture/Svg.h"
#include "tool/picture/SvgCharts.h"

namespace tool {

namespace {

using nlohmann::ordered_json;
using platform::stringWithFormat;

std::string section(const std::string& title, const std::string& content) {
  return "<section><h2>" + title + "</h2>\n" + content + "</section>\n";
}

// ---- The card

std::string cardRow(const std::string& name, const std::string& text) {
  return "<tr><th scope=\"row\">" + name + "</th><td>" + escaped(text) + "</td></tr>\n";
}

std::string lengthText(const PictureReports& reports) {
  std::string text = std::to_string(reports.count()) + " reports";
  if (reports.hasTimes)
    text += stringWithFormat(" in %.3f s", static_cast<double>(reports.end()) / 1e6);
  return text;
}

std::string card(const PictureData& data) {
  const auto& header = data.header;
  std::string rows = cardRow("Bus, vendor, product",
                             stringWithFormat("%04x:%04x:%04x", header.bus & 0xffffU,
                                              header.vendor & 0xffffU, header.product & 0xffffU));
  if (!header.physicalPath.empty()) rows += cardRow("Connected at", header.physicalPath);
  rows += cardRow("Class", classText(data.classification));
  rows += cardRow("Descriptor", std::to_string(header.reportDescriptor.size()) + " bytes, " +
                                    std::to_string(data.descriptor->elementCount()) + " elements");
  rows += cardRow("Reports", reportList(*data.descriptor));
  rows += cardRow("Recorded", lengthText(data.reports));
  rows += cardRow("From", data.file);
  return "<table>" + rows + "</table>\n";
}

// ---- The charts

constexpr const char* kZoomTools =
    "<div class=\"tools\" hidden>"
    "<button type=\"button\" id=\"in\">Zoom in</button>"
    "<button type=\"button\" id=\"out\">Zoom out</button>"
    "<button type=\"button\" id=\"earlier\">Earlier</button>"
    "<button type=\"button\" id=\"later\">Later</button>"
    "<button type=\"button\" id=\"all\">Everything</button>"
    "<output id=\"window\"></output>"
    "<span class=\"note\">or drag across a chart</span></div>\n";

std::string notMoved(const PictureData& data) {
  std::string names;
  for (const AxisTrack& axis : data.axes) {
    if (!axis.moves()) names += (names.empty() ? "" : ", ") + axis.control.name;
  }
  if (names.empty()) return names;
  return "<p class=\"note\">Did not move: " + escaped(names) + ".</p>\n";
}

std::string noteOnPath(const PictureData& data) {
  const std::string legend = legendOfPath(data);
  return legend.empty() ? legend : "\n<p class=\"note\">" + escaped(legend) + "</p>\n";
}

std::string timeCharts(const PictureData& data) {
  std::string content;
  int number = 0;
  for (const AxisTrack* axis : movingAxes(data))
    content += inlineSvg(axisChart(*axis, data.reports),
                         "class=\"zooms\" id=\"axis-" + std::to_string(++number) + "\"") +
               "\n";
  if (const auto switches = switchChart(data))
    content += inlineSvg(*switches, "class=\"zooms\" id=\"buttons\"") + "\n";
  return kZoomTools + content + notMoved(data);
}

// ---- The descriptor

std::string treeHtml(const std::vector<DescriptorNode>& nodes, std::size_t* room) {
  std::string list = "<ul>";
  for (const DescriptorNode& node : nodes) {
    if (*room == 0) return list + "<li>…</li></ul>";
    --*room;
    list += "<li><code>" + std::to_string(node.offset) + "</code> " + escaped(lineOf(node));
    if (!node.children.empty()) list += treeHtml(node.children, room);
    list += "</li>";
  }
  return list + "</ul>";
}

std::string descriptorHtml(const PictureData& data) {
  std::size_t room = 2000;
  std::string html = "<div id=\"tree\">" + treeHtml(treeOf(*data.descriptor), &room) + "</div>\n";
  if (data.fault) html += "<p class=\"fault\">" + escaped(data.fault->what()) + "</p>\n";
  return html;
}

// ---- The table

std::string idChoice(const PictureData& data) {
  if (!data.descriptor->usesReportIDs()) return {};
  std::set<int> ids;
  for (std::size_t i = 0; i < data.reports.count(); ++i) {
    const auto report = data.reports.report(i);
    if (!report.empty()) ids.insert(report[0]);
  }
  std::string options = "<option value=\"\">any</option>";
  for (const int id : ids)
    options += "<option value=\"" + std::to_string(id) + "\">" + std::to_string(id) + "</option>";
  return "<label>ID <select id=\"id\">" + options + "</select></label>\n";
}

std::string reportTable(const PictureData& data, std::size_t kept) {
  std::string html =
      "<div class=\"tools\" hidden><label>Bytes <input id=\"pattern\" placeholder=\"01 .. ff\" "
      "spellcheck=\"false\"></label>\n" +
      idChoice(data) +
      "<label><input type=\"checkbox\" id=\"changes\"> only changes</label>\n"
      "<output id=\"found\"></output></div>\n"
      "<noscript><p>The reports are listed by a script.</p></noscript>\n";
  if (kept < data.reports.count())
    html += "<p class=\"note\">The table and enlarged charts hold the first " +
            std::to_string(kept) + " of " + std::to_string(data.reports.count()) +
            " reports; the rest is in the recording.</p>\n";
  html += "<table id=\"rows\"><thead><tr><th scope=\"col\">Report</th>";
  if (data.reports.hasTimes) html += "<th scope=\"col\">Time</th>";
  if (data.descriptor->usesReportIDs()) html += "<th scope=\"col\">ID</th>";
  return html +
         "<th scope=\"col\">Bytes</th></tr></thead><tbody></tbody></table>\n"
         "<button type=\"button\" id=\"more\" hidden>More</button>\n";
}

// ---- What the script needs to know

ordered_json placeOf(const Control& control) {
  const router::ReportField& field = *control.field;
  return {{"report", field.reportID},
          {"bit", field.bitOffset + (control.cookie - field.firstCookie) * field.bitSize},
          {"size", field.bitSize},
          {"signed", field.logicalMinimum < 0}};
}

ordered_json axisAbout(const AxisTrack& track, int number) {
  ordered_json about = placeOf(track.control);
  const auto [low, high] = std::ranges::minmax_element(track.values);
  about["chart"] = "axis-" + std::to_string(number);
  about["low"] = *low;
  about["high"] = *high;
  about["top"] = kAxisTop;
  about["bottom"] = kAxisBottom;
  return about;
}

/// The slot's value that selects the key; null for a button.
ordered_json selectionOf(const Control& control) {
  if (control.kind != Control::Kind::Key) return nullptr;
  const router::ReportField& field = *control.field;
  std::uint64_t index = 0;
  while (field.usages.at(index) && field.usages.at(index) != control.usage) ++index;
  return field.logicalMinimum + static_cast<std::int64_t>(index);
}

ordered_json rowAbout(const SwitchTrack& track, std::size_t number) {
  ordered_json about = placeOf(track.control);
  about["count"] = track.control.kind == Control::Kind::Key ? track.control.field->count : 1;
  about["select"] = selectionOf(track.control);
  about["y"] = switchRowCentre(number);
  return about;
}

std::string aboutScript(const PictureData& data) {
  auto axes = ordered_json::array();
  for (const AxisTrack* axis : movingAxes(data))
    axes.push_back(axisAbout(*axis, static_cast<int>(axes.size()) + 1));
  auto rows = ordered_json::array();
  for (const SwitchTrack* track : usedSwitches(data)) rows.push_back(rowAbout(*track, rows.size()));
  // Numbers and this program's own words only: nothing in it can end the element.
  const ordered_json about = {{"hasTimes", data.reports.hasTimes},
                              {"usesIDs", data.descriptor->usesReportIDs()},
                              {"count", data.reports.count()},
                              {"end", data.reports.end()},
                              {"plot", {kPlotLeft, kPlotRight}},
                              {"axes", axes},
                              {"rows", rows}};
  return about.dump();
}

std::string body(const PictureData& data) {
  std::string html =
      "<body>\n<header><h1>" + escaped(data.header.name) + "</h1>\n<p class=\"verdict\">" +
      escaped(verdictOn(data.measurement, std::nullopt)) + "</p></header>\n<main>\n" + card(data);
  if (const auto path = pathChart(data))
    html += section("Path", inlineSvg(*path, "id=\"path\"") + noteOnPath(data));
  html += section("Over time", timeCharts(data));
  if (const auto intervals = intervalChart(data))
    html += section("Times between reports", inlineSvg(*intervals, "id=\"intervals\""));
  return html + section("Descriptor", descriptorHtml(data));
}

}  // namespace

std::string pageOf(const PictureData& data) {
  constexpr std::size_t kTable = 4096;  // more than the table's frame needs
  std::string page = documentHead(data.header.name, kPageScriptHash) + body(data);
  const std::string end = "<script type=\"application/json\" id=\"about\">" + aboutScript(data) +
                          "</script>\n<script type=\"text/plain\" id=\"packed\">";
  const std::string script =
      "</script>\n<script>" + std::string(kPageScript) + "</script>\n</body>\n</html>\n";
  const std::size_t used = page.size() + end.size() + script.size() + kTable;
  const PackedReports packed = packReports(data.reports, data.descriptor->usesReportIDs(),
                                           kMaxPageBytes - std::min(used, kMaxPageBytes));
  page += section("Reports", reportTable(data, packed.count)) + "</main>\n" + end;
  return page + packed.text + script;
}

}  // namespace tool
