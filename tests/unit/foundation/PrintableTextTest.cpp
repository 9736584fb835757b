// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/PrintableText.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <utility>

#include "platform/foundation/Text.h"

namespace {

using platform::printableLine;
using platform::printableText;

std::string character(char32_t codePoint) {
  std::string text;
  platform::appendUTF8(text, codePoint);
  return text;
}

TEST(PrintableText, ReadableTextStaysAsItIs) {
  const std::string text = "plain \\x41 \xC3\xA4\xE2\x82\xAC\xF0\x9F\x90\xB9 \xC2\xA0";
  EXPECT_EQ(printableLine(text), text);
  EXPECT_EQ(printableText(text), text);
  EXPECT_EQ(printableLine(""), "");
}

TEST(PrintableText, ControlsBecomeVisible) {
  EXPECT_EQ(printableLine("a\r\nb\x1b[31m\x7f"), "a\\x0d\\x0ab\\x1b[31m\\x7f");
  EXPECT_EQ(printableLine(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(printableLine("\xC2\x85|\xC2\x9B"), "\\x85|\\x9b");
  EXPECT_EQ(printableLine("\xE2\x80\xA8\xE2\x80\xA9"), "\\u2028\\u2029");
}

TEST(PrintableText, ALineHasNoLineEndsAndATextKeepsThem) {
  EXPECT_EQ(printableLine("a\tb\nc"), "a b\\x0ac");
  EXPECT_EQ(printableText("a\tb\nc\r\n\x1b"), "a\tb\nc\\x0d\n\\x1b");
}

TEST(PrintableText, InvisibleAndBidirectionalCharactersBecomeVisible) {
  EXPECT_EQ(printableLine("user" + character(0x202E) + "txt.exe"), "user\\u202etxt.exe");
  for (const char32_t first : {0x061C, 0x200E, 0x2066, 0xFEFF, 0x00AD}) {
    EXPECT_EQ(printableLine(character(first)).front(), '\\') << std::hex << +first;
  }
  EXPECT_EQ(printableLine(character(0xE0041)), "\\U000e0041");
}

TEST(PrintableText, TheRangesEndWhereTheyShould) {
  for (const char32_t shown : {0x20, 0x7E, 0xA0, 0xAC, 0xAE, 0x5FF, 0x606, 0x200A, 0x2010, 0x2027,
                               0x202F, 0x205F, 0x2070, 0xFEFE, 0xFFF8, 0xFFFC, 0xE0000, 0xE0080}) {
    EXPECT_EQ(printableLine(character(shown)), character(shown)) << std::hex << +shown;
  }
  for (const char32_t hidden : {0x1F, 0x80, 0x9F, 0x600, 0x605, 0x200B, 0x200F, 0x2028, 0x202E,
                                0x2060, 0x206F, 0xFFF9, 0xFFFB, 0xE0001, 0xE007F}) {
    EXPECT_EQ(printableLine(character(hidden)).front(), '\\') << std::hex << +hidden;
  }
}

TEST(PrintableText, EveryRangeOfInvisibleCharactersBeginsAndEndsWhereItShould) {
  constexpr std::pair<char32_t, char32_t> kRanges[] = {
      {0xAD, 0xAD},       {0x600, 0x605},     {0x61C, 0x61C},     {0x6DD, 0x6DD},
      {0x70F, 0x70F},     {0x890, 0x891},     {0x8E2, 0x8E2},     {0x180E, 0x180E},
      {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},   {0xFEFF, 0xFEFF},
      {0xFFF9, 0xFFFB},   {0x110BD, 0x110BD}, {0x110CD, 0x110CD}, {0x13430, 0x1343F},
      {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0001, 0xE007F}};
  for (const auto& [first, last] : kRanges) {
    SCOPED_TRACE(static_cast<std::uint32_t>(first));
    for (const char32_t shown : {first - 1, last + 1})
      EXPECT_EQ(printableLine(character(shown)), character(shown));
    for (const char32_t hidden : {first, last}) {
      char escape[16];
      std::snprintf(escape, sizeof escape, hidden < 0x10000 ? "\\u%04x" : "\\U%08x",
                    static_cast<unsigned>(hidden));
      EXPECT_EQ(printableLine(character(hidden)), escape);
    }
  }
}

TEST(PrintableText, BytesThatAreNotUTF8AreWrittenAsNumbers) {
  EXPECT_EQ(printableLine("\xFF"), "\\xff");
  EXPECT_EQ(printableLine("\xC0\x80"), "\\xc0\\x80");
  EXPECT_EQ(printableLine("\xE2\x82"), "\\xe2\\x82");
  EXPECT_EQ(printableLine("\xE2\x82z"), "\\xe2\\x82z");
  EXPECT_EQ(printableLine("\xED\xA0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(printableLine("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(printableText("\xE0\x80\x80x"), "\\xe0\\x80\\x80x");
}

TEST(PrintableText, ALongLineIsCutBetweenCharacters) {
  EXPECT_EQ(printableLine("abcd", 4), "abcd");
  EXPECT_EQ(printableLine("abcde", 4), "abc…");
  EXPECT_EQ(printableLine("\xC3\xA4\xC3\xA4\xC3\xA4", 2), "\xC3\xA4…");
  EXPECT_EQ(printableLine("ab\x1b\x1b", 3), "ab…");
  EXPECT_EQ(printableLine("ab", 1), "…");
  EXPECT_EQ(printableLine("ab", 0), "");
  EXPECT_EQ(printableLine(std::string(2000, 'x')), std::string(999, 'x') + "…");
  EXPECT_EQ(printableLine(std::string(1000, 'x')), std::string(1000, 'x'));
  EXPECT_EQ(printableLine("ab\tc", 3), "ab…");
}

}  // namespace
