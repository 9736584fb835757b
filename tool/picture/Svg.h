// SPDX-License-Identifier: Apache-2.0

// Pieces of SVG and HTML.
//
// Threading: any thread.
#pragma once

#include <string>
#include <string_view>

namespace tool {

/// Text for HTML and XML, in content and in quoted attributes. Nothing in it can be markup; control
/// and format characters are made visible.
[[nodiscard]] std::string escaped(std::string_view text);

/// A number with at most one decimal, as coordinates need it.
void appendCoordinate(std::string& out, double number);

/// Maps a range to the pixels of one direction.
struct Scale {
  double from = 0;
  double to = 1;
  double begin = 0;  ///< the pixel of `from`
  double end = 1;

  [[nodiscard]] double operator()(double value) const;
};

struct Chart {
  std::string file;   ///< without ".svg"
  std::string title;  ///< plain text
  int width = 0;
  int height = 0;
  std::string body;  ///< elements
};

/// The chart as part of a page, whose style applies. `attributes` is markup.
[[nodiscard]] std::string inlineSvg(const Chart& chart, const std::string& attributes = {});
/// The chart as a file of its own, which follows the viewer's light or dark theme.
[[nodiscard]] std::string standaloneSvg(const Chart& chart);

}  // namespace tool
