// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/Svg.h"

#include <array>
#include <charconv>
#include <cmath>

#include "platform/foundation/PrintableText.h"
#include "tool/picture/Page.h"

namespace tool {

namespace {

std::string dimensions(const Chart& chart) {
  const std::string width = std::to_string(chart.width);
  const std::string height = std::to_string(chart.height);
  return "viewBox=\"0 0 " + width + " " + height + "\" width=\"" + width + "\" height=\"" + height +
         "\"";
}

std::string contents(const Chart& chart) {
  return "<title>" + escaped(chart.title) + "</title>" + chart.body + "</svg>";
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : platform::printableText(text)) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

void appendCoordinate(std::string& out, double number) {
  std::array<char, 32> digits;
  const auto tenths = static_cast<long long>(std::llround(number * 10));
  auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), tenths / 10);
  if (tenths < 0 && tenths > -10) out += '-';
  out.append(digits.data(), end);
  if (tenths % 10 == 0) return;
  out += '.';
  out += static_cast<char>('0' + std::llabs(tenths % 10));
}

double Scale::operator()(double value) const {
  if (to <= from) return (begin + end) / 2;
  return begin + (value - from) / (to - from) * (end - begin);
}

std::string inlineSvg(const Chart& chart, const std::string& attributes) {
  return "<svg role=\"img\" " + dimensions(chart) + (attributes.empty() ? "" : " ") + attributes +
         ">" + contents(chart);
}

std::string standaloneSvg(const Chart& chart) {
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" " + dimensions(chart) +
         "><style>" + std::string(kChartStyle) +
         "</style><rect class=\"background\" width=\"100%\" height=\"100%\"/>" + contents(chart) +
         "\n";
}

}  // namespace tool
