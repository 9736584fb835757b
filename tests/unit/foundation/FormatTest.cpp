// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/Format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace platform {
namespace {

constexpr std::uint64_t kBeyond32Bits = 4294967297;  // 2^32 + 1

TEST(Format, TakesAsManyBitsAsTheConversionSays) {
  EXPECT_EQ(stringWithFormat("%u", kBeyond32Bits), "1");
  EXPECT_EQ(stringWithFormat("%d", kBeyond32Bits), "1");
  EXPECT_EQ(stringWithFormat("%x", kBeyond32Bits), "1");
  EXPECT_EQ(stringWithFormat("%o", kBeyond32Bits + 7), "10");
  EXPECT_EQ(stringWithFormat("%lu", kBeyond32Bits), "4294967297");
  EXPECT_EQ(stringWithFormat("%llu %qu %zu %tu %ju", kBeyond32Bits, kBeyond32Bits, kBeyond32Bits,
                             kBeyond32Bits, kBeyond32Bits),
            "4294967297 4294967297 4294967297 4294967297 4294967297");
  EXPECT_EQ(stringWithFormat("%hd %hhd %hu %hhu", 65537, 257, 65537, 257), "1 1 1 1");
  EXPECT_EQ(stringWithFormat("%hhd %hd", 255, 65535), "-1 -1");
}

TEST(Format, SignsFollowTheConversion) {
  EXPECT_EQ(stringWithFormat("%u", -1), "4294967295");
  EXPECT_EQ(stringWithFormat("%d", 4294967295U), "-1");
  EXPECT_EQ(stringWithFormat("%ld", std::numeric_limits<std::uint64_t>::max()), "-1");
  EXPECT_EQ(stringWithFormat("%ld", std::numeric_limits<std::int64_t>::min()),
            "-9223372036854775808");
  EXPECT_EQ(stringWithFormat("%lu", std::int64_t{-1}), "18446744073709551615");
  EXPECT_EQ(stringWithFormat("%i %X %#x", -5, 255, 255), "-5 FF 0xff");
}

TEST(Format, FlagsWidthAndPrecisionAreThoseOfC) {
  EXPECT_EQ(stringWithFormat("[%5d][%-5d][%05d][%+d][% d][%.3d]", 42, 42, 42, 42, 42, 42),
            "[   42][42   ][00042][+42][ 42][042]");
  EXPECT_EQ(stringWithFormat("[%8.3f][%e][%g][%.0f]", 3.14159, 1234.5, 0.0001, 2.5),
            "[   3.142][1.234500e+03][0.0001][2]");
  EXPECT_EQ(stringWithFormat("[%5s][%-5s][%.2s]", "abc", "abc", "abc"), "[  abc][abc  ][ab]");
  EXPECT_EQ(stringWithFormat("[%'d]", 1234), "[1234]");
  EXPECT_EQ(stringWithFormat("[%.d][%.0d][%10.4d][%-10d]", 0, 0, 9, 9),
            "[][][      0009][9         ]");
  EXPECT_EQ(stringWithFormat("%F %E %G", 0.5, 0.5, 1e-10), "0.500000 5.000000E-01 1E-10");
}

TEST(Format, AgreesWithTheLibraryOverFlagsAndWidths) {
  for (const char* const flags : {"", "-", "0", "+", " ", "#", "-#", "0+"}) {
    for (const char* const size : {"", "1", "12", ".5", "12.5"}) {
      for (const char letter : {'d', 'u', 'x', 'X', 'o'}) {
        const std::string ours = std::string("%") + flags + size + "ll" + letter;
        char expected[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::snprintf(expected, sizeof expected, ours.c_str(), -123456789012LL);
#pragma GCC diagnostic pop
        EXPECT_EQ(stringWithFormat(ours, std::int64_t{-123456789012}), expected) << ours;
      }
    }
  }
}

TEST(Format, RendersObjectsByDescription) {
  EXPECT_EQ(stringWithFormat("%@ and %@", str("text"), NSNumber::numberWithLongLong(5)),
            "text and 5");
  EXPECT_EQ(stringWithFormat("%@", std::shared_ptr<NSString>()), "(null)");
  EXPECT_EQ(stringWithFormat("%@", nullptr), "(null)");
  EXPECT_EQ(stringWithFormat("%s", static_cast<const char*>(nullptr)), "(null)");
  EXPECT_EQ(stringWithFormat("[%6@]", str("abc")), "[   abc]");
  EXPECT_EQ(stringWithFormat("%@", std::string_view("view")), "view");
}

TEST(Format, RendersPointers) {
  EXPECT_EQ(stringWithFormat("%p", reinterpret_cast<const void*>(0x1F)), "0x1f");
  EXPECT_EQ(stringWithFormat("%p", static_cast<const void*>(nullptr)), "0x0");
  EXPECT_EQ(stringWithFormat("%p", reinterpret_cast<const void*>(UINTPTR_MAX)),
            "0xffffffffffffffff");
  EXPECT_EQ(stringWithFormat("%@", reinterpret_cast<const void*>(0x1F)), "0x1f");
  EXPECT_EQ(stringWithFormat("[%6p]", reinterpret_cast<const void*>(0x1F)), "[  0x1f]");
  EXPECT_EQ(stringWithFormat("%@", static_cast<const void*>(nullptr)), "(null)");
}

TEST(Format, RendersCharactersAsUTF8) {
  EXPECT_EQ(stringWithFormat("%c%c", 'a', 0x20AC), "a€");
  EXPECT_EQ(stringWithFormat("%c", 0xD800), "\uFFFD");
  EXPECT_EQ(stringWithFormat("%c", -1), "\uFFFD");
  EXPECT_EQ(stringWithFormat("%c|%c|%c|%c", 0xD7FF, 0xDFFF, 0xE000, 0x10FFFF),
            "\uD7FF|\uFFFD|\uE000|\U0010FFFF");
  EXPECT_EQ(stringWithFormat("%c", 0x110000), "\uFFFD");
}

TEST(Format, AnArgumentOfAnotherKindPrintsInItsOwnForm) {
  EXPECT_EQ(stringWithFormat("%d %u %@ %s", 1.5, str("x"), 7, 8U), "1.5 x 7 8");
  EXPECT_EQ(stringWithFormat("%f %p", 3, 4), "3 4");
  EXPECT_EQ(stringWithFormat("%d", "text"), "text");
}

TEST(Format, SaysWhereAnArgumentIsMissing) {
  EXPECT_EQ(stringWithFormat("%d %@"), "(missing) (missing)");
  EXPECT_EQ(stringWithFormat("%d %d", 1), "1 (missing)");
  EXPECT_EQ(stringWithFormat("%d", 1, 2), "1");
}

TEST(Format, LeavesUnknownConversionsAsTheyAre) {
  EXPECT_EQ(stringWithFormat("100%% %"), "100% %");
  EXPECT_EQ(stringWithFormat("%-", 1), "%-");
  EXPECT_EQ(stringWithFormat("%n %d", 5), "%n 5");
  EXPECT_EQ(stringWithFormat("%*d", 5), "%*d");
  EXPECT_EQ(stringWithFormat(""), "");
  EXPECT_EQ(stringWithFormat("%.%|%5%", 1), "%|%");
  EXPECT_EQ(stringWithFormat(std::string_view("%d").substr(0, 1), 1), "%");
  EXPECT_EQ(stringWithFormat(std::string_view("%\0d", 3), 1), std::string_view("%\0d", 3));
}

TEST(Format, AHostileWidthMakesNoHugeLine) {
  EXPECT_EQ(stringWithFormat("%999999999999999999999d", 1).size(), 4096U);
  EXPECT_EQ(stringWithFormat("%99999999999s", "x").size(), 4096U);
  EXPECT_LE(stringWithFormat("%.99999999999f", 1.0).size(), 4100U);
  EXPECT_EQ(stringWithFormat("%.99999999999d", 1).size(), 4096U);
}

TEST(Format, PrecisionNeverSplitsACharacter) {
  EXPECT_EQ(stringWithFormat("%.1s|%.2s|%.3s", "ä", "ä", "aää"), "|ä|aä");
  EXPECT_EQ(stringWithFormat("[%.0s][%.s][%.2s][%.3s]", "ab", "ab", "\x80\x81\x82", "a€"),
            "[][][][a]");
  EXPECT_EQ(stringWithFormat("[%3.1s][%-3.1s]", "ab", "ab"), "[  a][a  ]");
}

TEST(Format, TakesBooleansAndEnumerators) {
  enum class Kind : std::uint8_t { two = 2 };
  EXPECT_EQ(stringWithFormat("%d %u %d", true, false, Kind::two), "1 0 2");
}

}  // namespace
}  // namespace platform
