// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/ScreenSvg.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "tool/picture/Svg.h"

namespace tool::monitor {

namespace {

constexpr double kWidth = 8.4;  // of a column, at 14 pixels
constexpr double kHeight = 17;

/// In the order of Colour.
constexpr std::array<std::string_view, 10> kColours{"#d8dee9", "#7b8494", "#8fd18a", "#e5c07b",
                                                    "#f07178", "#6cc7e0", "#24556e", "#2f86a6",
                                                    "#4fb8d8", "#a9ecff"};
constexpr std::string_view kBackground = "#12161c";

std::string_view colourOf(const Style& style) {
  return kColours[static_cast<std::size_t>(style.colour)];
}

void appendAttribute(std::string& out, std::string_view name, double number) {
  out.append(" ").append(name).append("=\"");
  appendCoordinate(out, number);
  out += '"';
}

void appendBox(std::string& out, const Rect& rect, std::string_view colour) {
  out += "<rect";
  appendAttribute(out, "x", rect.column * kWidth);
  appendAttribute(out, "y", rect.row * kHeight);
  appendAttribute(out, "width", rect.columns * kWidth);
  appendAttribute(out, "height", rect.rows * kHeight);
  out.append(" fill=\"").append(colour).append("\"/>");
}

/// Viewers run blanks together, unless they are no-break ones.
std::string withBlanks(std::string_view text) {
  std::string kept;
  for (const char c : escaped(text)) {
    if (c == ' ')
      kept += "\u00a0";
    else
      kept += c;
  }
  return kept;
}

void appendText(std::string& out, int row, int column, int columns, std::string_view text,
                const Style& style) {
  if (style.isReverse) appendBox(out, {row, column, 1, columns}, colourOf(style));
  const auto first = std::min(text.find_first_not_of(' '), text.size());
  const auto last = text.find_last_not_of(' ') + 1;
  if (first >= last) return;
  column += static_cast<int>(first);
  columns -= static_cast<int>(first + text.size() - last);
  text = text.substr(first, last - first);
  out += "<text";
  appendAttribute(out, "x", column * kWidth);
  appendAttribute(out, "y", row * kHeight + 13);
  // Whatever the font, it stays in its columns.
  appendAttribute(out, "textLength", columns * kWidth);
  out.append(" fill=\"").append(style.isReverse ? kBackground : colourOf(style)).append("\"");
  if (style.isBold) out += " font-weight=\"bold\"";
  if (style.isDim) out += " opacity=\"0.6\"";
  out.append(">").append(withBlanks(text)).append("</text>");
}

/// Cells of one style are one element.
void appendRow(std::string& out, const Screen& screen, int row) {
  int begin = 0;
  std::string text;
  for (int column = 0; column <= screen.columns(); ++column) {
    const bool isEnd = column == screen.columns() ||
                       !(screen.at(row, column).style == screen.at(row, begin).style);
    if (isEnd) {
      appendText(out, row, begin, column - begin, text, screen.at(row, begin).style);
      begin = column;
      text.clear();
    }
    const char32_t character = column < screen.columns() ? screen.at(row, column).character : 0;
    if (character != 0) appendUtf8(text, character);
  }
}

}  // namespace

std::string svgOf(const Screen& screen, const std::string& title) {
  std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\"";
  appendAttribute(svg, "width", screen.columns() * kWidth);
  appendAttribute(svg, "height", screen.rows() * kHeight);
  svg +=
      " font-family=\"DejaVu Sans Mono,Liberation Mono,monospace\" font-size=\"14\">"
      "<title>" +
      escaped(title) + "</title>";
  appendBox(svg, {0, 0, screen.rows(), screen.columns()}, kBackground);
  for (int row = 0; row < screen.rows(); ++row) appendRow(svg, screen, row);
  return svg + "</svg>\n";
}

}  // namespace tool::monitor
