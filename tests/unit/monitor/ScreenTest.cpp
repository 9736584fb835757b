// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Screen.h"

#include <gtest/gtest.h>

namespace tool::monitor {
namespace {

constexpr Look kPlain{false, true};

TEST(Screen, BeginsBlank) {
  EXPECT_EQ(Screen(2, 3, {}).text(), "\n\n");
}

TEST(Screen, ShortensWhatDoesNotFit) {
  Screen screen(3, 8, {});
  EXPECT_EQ(screen.write(0, 0, 8, "exactly8"), 8);
  EXPECT_EQ(screen.write(1, 0, 8, "one too many"), 8);
  EXPECT_EQ(screen.write(2, 5, 8, "edge of it"), 3);
  EXPECT_EQ(screen.text(), "exactly8\none too…\n     ed…\n");
}

TEST(Screen, DrawsNothingOutside) {
  Screen screen(2, 4, {});
  screen.put(-1, 0, U'a');
  screen.put(0, -1, U'a');
  screen.put(2, 0, U'a');
  screen.put(0, 4, U'a');
  screen.write(5, 0, 4, "text");
  screen.write(0, 9, 4, "text");
  screen.write(0, 0, -3, "text");
  screen.restyle({-5, -5, 100, 100}, {Colour::Bad});
  EXPECT_EQ(screen.text(), "\n\n");
  EXPECT_EQ(screen.at(7, 7), Cell{});
}

TEST(Screen, MakesWhatADeviceSendsHarmless) {
  Screen screen(1, 40, {});
  screen.write(0, 0, 40, "\x1b[2J\u202e\n\xff");
  EXPECT_EQ(screen.text(), "\\x1b[2J\\u202e\\x0a\\xff\n");
}

TEST(Screen, IsAsciiWithoutUnicode) {
  Screen screen(2, 12, kPlain);
  screen.put(0, 0, U'█');
  screen.write(0, 1, 10, "Stift é");
  screen.write(1, 0, 5, "too long");
  EXPECT_EQ(screen.text(), "?Stift ?\ntoo ~\n");
}

TEST(Screen, GivesWideCharactersTwoColumnsAndMarksNone) {
  Screen screen(2, 5, {});
  EXPECT_EQ(screen.write(0, 0, 5, "ペンe\u0301"), 5);
  EXPECT_EQ(screen.at(0, 1).character, 0U);
  EXPECT_EQ(screen.write(1, 0, 4, "ペンペン"), 3) << "two and a half would not fit";
  EXPECT_EQ(screen.text(), "ペンe\nペ…\n") << "the mark is left out";
}

TEST(Screen, PutsTextAtTheRight) {
  Screen screen(1, 10, {});
  screen.writeRight(0, 1, 8, "12");
  EXPECT_EQ(screen.text(), "       12\n");
}

TEST(Screen, TellsStylesApartWithoutColours) {
  Screen screen(1, 4, {true, false});
  screen.put(0, 0, U'a', {Colour::Bad});
  screen.put(0, 1, U'b', {Colour::Quiet});
  screen.put(0, 2, U'c', {Colour::Level4});
  screen.put(0, 3, U'd', {Colour::Level1});
  EXPECT_TRUE(screen.at(0, 0).style.isBold);
  EXPECT_TRUE(screen.at(0, 1).style.isDim);
  EXPECT_TRUE(screen.at(0, 2).style.isBold);
  EXPECT_TRUE(screen.at(0, 3).style.isDim);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(screen.at(0, i).style.colour, Colour::Usual);
}

TEST(Screen, EncodesCharactersOfEveryLength) {
  std::string text;
  for (const char32_t each : {U'a', U'é', U'█', U'😀'}) appendUtf8(text, each);
  EXPECT_EQ(text, "aé█😀");
  EXPECT_EQ(columnsOf("aé█😀"), 5);
}

}  // namespace
}  // namespace tool::monitor
