// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/ScreenSvg.h"

#include <gtest/gtest.h>

namespace tool::monitor {
namespace {

TEST(ScreenSvg, DrawsRunsOfOneStyle) {
  Screen screen(2, 10, {});
  screen.write(0, 0, 10, "ab");
  screen.write(0, 2, 10, "cd", {Colour::Good, true});
  screen.write(1, 4, 10, "x", {Colour::Accent, false, false, true});
  const std::string svg = svgOf(screen, "A title");
  EXPECT_TRUE(svg.starts_with("<svg xmlns=")) << svg;
  EXPECT_TRUE(svg.ends_with("</svg>\n"));
  EXPECT_NE(svg.find("width=\"84\" height=\"34\""), std::string::npos) << svg;
  EXPECT_NE(svg.find("<title>A title</title>"), std::string::npos);
  EXPECT_NE(svg.find(">ab</text>"), std::string::npos);
  EXPECT_NE(svg.find("font-weight=\"bold\">cd</text>"), std::string::npos);
  EXPECT_NE(svg.find("<rect x=\"33.6\" y=\"17\" width=\"8.4\" height=\"17\""), std::string::npos)
      << "the ground of what is in reverse: " << svg;
}

TEST(ScreenSvg, KeepsBlanks) {
  Screen screen(1, 12, {});
  screen.write(0, 2, 10, "a  b");
  EXPECT_NE(
      svgOf(screen, "")
          .find("x=\"16.8\" y=\"13\" textLength=\"33.6\" fill=\"#d8dee9\">a\u00a0\u00a0b</text>"),
      std::string::npos)
      << svgOf(screen, "");
}

TEST(ScreenSvg, NothingInItIsMarkup) {
  Screen screen(1, 30, {});
  screen.write(0, 0, 30, "<script>&\"'");
  const std::string svg = svgOf(screen, "</title>");
  EXPECT_EQ(svg.find("<script>"), std::string::npos);
  EXPECT_NE(svg.find("&lt;script&gt;&amp;&quot;&#39;"), std::string::npos) << svg;
  EXPECT_NE(svg.find("<title>&lt;/title&gt;</title>"), std::string::npos);
}

TEST(ScreenSvg, LeavesTheSecondHalfOfAWideCharacterOut) {
  Screen screen(1, 4, {});
  screen.write(0, 0, 4, "ペン");
  EXPECT_NE(svgOf(screen, "").find("textLength=\"33.6\" fill=\"#d8dee9\">ペン</text>"),
            std::string::npos)
      << svgOf(screen, "");
}

}  // namespace
}  // namespace tool::monitor
