// SPDX-License-Identifier: Apache-2.0

#include "tool/command/Numbers.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

TEST(ParseNumber, ReadsDecimalAndHexadecimal) {
  EXPECT_EQ(parseNumber("0"), 0U);
  EXPECT_EQ(parseNumber("4294967971"), 4294967971U);
  EXPECT_EQ(parseNumber("0x1000002a3"), 4294967971U);
  EXPECT_EQ(parseNumber("0XFFFFFFFFFFFFFFFF"), UINT64_MAX);
  EXPECT_EQ(parseNumber("18446744073709551615"), UINT64_MAX);
}

TEST(ParseNumber, RefusesEverythingElse) {
  for (const char* text : {"", "0x", "-1", "+1", " 1", "1 ", "1.5", "0x10000000000000000",
                           "18446744073709551616", "ten", "0b1"}) {
    EXPECT_EQ(parseNumber(text), std::nullopt) << text;
  }
}

TEST(Hexadecimal, ReadsBackTheSame) {
  for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{0x1000002a3}, UINT64_MAX}) {
    EXPECT_EQ(parseNumber(hexadecimal(number)), number);
  }
}

}  // namespace
}  // namespace tool
