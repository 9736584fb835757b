// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Glyphs.h"

#include <gtest/gtest.h>

namespace tool::monitor {
namespace {

constexpr Look kPlain{false, true};

std::string bar(double from, double to, Look look) {
  Screen screen(1, 8, look);
  drawBar(screen, 0, 0, 8, from, to, {});
  return screen.text();
}

TEST(Glyphs, FillABarToAnEighthOfAColumn) {
  EXPECT_EQ(bar(0, 0, {}), "········\n");
  EXPECT_EQ(bar(0, 1, {}), "████████\n");
  EXPECT_EQ(bar(0, 0.5, {}), "████····\n");
  EXPECT_EQ(bar(0, 33 / 64.0, {}), "████▏···\n");
  EXPECT_EQ(bar(0, 7, {}), "████████\n");
}

TEST(Glyphs, FillABarFromItsMiddle) {
  EXPECT_EQ(bar(0.5, 0.75, {}), "····██··\n");
  EXPECT_EQ(bar(0.5, 0.25, {}), "··██····\n");
  EXPECT_EQ(bar(0.5, 0.25, kPlain), "..##....\n");
}

TEST(Glyphs, RiseInASparkline) {
  EXPECT_EQ(sparkGlyph(0, true), U'▁');
  EXPECT_EQ(sparkGlyph(1, true), U'█');
  EXPECT_EQ(sparkGlyph(9, true), U'█');
  EXPECT_EQ(sparkGlyph(0, false), U'_');
  EXPECT_EQ(sparkGlyph(1, false), U'@');
}

TEST(Glyphs, PutEightDotsIntoACell) {
  DotCanvas canvas(1, 3);
  EXPECT_EQ(canvas.width(), 6);
  EXPECT_EQ(canvas.height(), 4);
  canvas.dot(0, 0, 1);
  canvas.line(2, 0, 2, 3, 1);
  for (int x = 4; x < 6; ++x)
    for (int y = 0; y < 4; ++y) canvas.dot(x, y, 1);
  Screen screen(1, 3, {});
  canvas.drawOn(screen, 0, 0);
  EXPECT_EQ(screen.text(), "⠁⡇⣿\n");
}

TEST(Glyphs, KeepTheBrightestDotOfACell) {
  DotCanvas canvas(1, 2);
  canvas.dot(0, 0, 1);
  canvas.dot(1, 1, 4);
  canvas.dot(2, 2, 2);
  canvas.dot(99, 0, 4);
  canvas.dot(0, -1, 4);
  Screen screen(1, 2, {});
  canvas.drawOn(screen, 0, 0);
  EXPECT_EQ(screen.at(0, 0).style.colour, Colour::Level4);
  EXPECT_EQ(screen.at(0, 1).style.colour, Colour::Level2);
  Screen plain(1, 2, kPlain);
  canvas.drawOn(plain, 0, 0);
  EXPECT_EQ(plain.text(), "@:\n");
}

TEST(Glyphs, NameALine) {
  Screen screen(2, 12, {});
  drawTitle(screen, 0, 0, 12, "Keys");
  drawTitle(screen, 1, 0, 12, "");
  EXPECT_EQ(screen.text(), "─ Keys ─────\n────────────\n");
}

}  // namespace
}  // namespace tool::monitor
