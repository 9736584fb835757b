// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSString.h"

#include <gtest/gtest.h>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/Text.h"

namespace platform {
namespace {

using namespace std::string_view_literals;

std::string joined(std::string_view path, std::string_view component) {
  return str(path)->stringByAppendingPathComponent(str(component))->UTF8String();
}

TEST(NSString, TakesEveryWellFormedSequenceAtItsEdges) {
  for (const auto text :
       {""sv, "a"sv, "\x7F"sv, "\xC2\x80"sv, "\xDF\xBF"sv, "\xE0\xA0\x80"sv, "\xED\x9F\xBF"sv,
        "\xEE\x80\x80"sv, "\xEF\xBF\xBF"sv, "\xF0\x90\x80\x80"sv, "\xF4\x8F\xBF\xBF"sv, "a\0b"sv}) {
    const auto string = NSString::stringWithUTF8(text);
    ASSERT_NE(string, nullptr) << text;
    EXPECT_EQ(string->UTF8String(), text);
  }
}

TEST(NSString, RefusesBytesThatAreNotWellFormed) {
  for (const auto bytes :
       {"\x80"sv, "\xBF"sv, "\xC0\x80"sv, "\xC1\xBF"sv, "\xC2"sv, "\xC2 "sv, "\xE0\x9F\xBF"sv,
        "\xE0\xA0"sv, "\xED\xA0\x80"sv, "\xED\xBF\xBF"sv, "\xF0\x8F\xBF\xBF"sv,
        "\xF4\x90\x80\x80"sv, "\xF5\x80\x80\x80"sv, "\xFF"sv, "a\xF0\x90\x80"sv}) {
    EXPECT_EQ(NSString::stringWithUTF8(bytes), nullptr) << testing::PrintToString(bytes);
    EXPECT_FALSE(isValidUTF8(bytes));
  }
}

TEST(NSString, IsNullForANullPointer) {
  EXPECT_EQ(NSString::stringWithUTF8String(nullptr), nullptr);
}

TEST(NSString, StopsAtTheNULOfACString) {
  EXPECT_EQ(NSString::stringWithUTF8String("ab\0c")->UTF8String(), "ab");
}

TEST(NSString, CountsUTF16Units) {
  EXPECT_EQ(str("")->length(), 0U);
  EXPECT_EQ(str("aä€")->length(), 3U);
  EXPECT_EQ(str("😀")->length(), 2U);
  EXPECT_EQ(str("a\0b"sv)->length(), 3U);
}

TEST(NSString, EqualityIsByCodeUnitsWithoutNormalisation) {
  EXPECT_TRUE(str("abc")->isEqual(str("abc")));
  EXPECT_FALSE(str("abc")->isEqual(str("abC")));
  EXPECT_FALSE(str("a\0b"sv)->isEqual(str("a\0c"sv)));
  EXPECT_FALSE(str("\u00E4")->isEqual(str("a\u0308")));
  EXPECT_FALSE(str("1")->isEqual(nullptr));
}

TEST(NSString, JoinsPathComponentsWithExactlyOneSlash) {
  EXPECT_EQ(joined("/a", "b"), "/a/b");
  EXPECT_EQ(joined("/a/", "b"), "/a/b");
  EXPECT_EQ(joined("/a//", "//b/c"), "/a/b/c");
  EXPECT_EQ(joined("/", "b"), "/b");
  EXPECT_EQ(joined("", "b"), "b");
  EXPECT_EQ(joined("", "/b"), "/b");
  EXPECT_EQ(joined("/a", ""), "/a");
  EXPECT_EQ(joined("/a/", ""), "/a");
  EXPECT_EQ(joined("/a", "b/"), "/a/b");
  EXPECT_EQ(joined("/a", "/"), "/a");
  EXPECT_EQ(str("/a")->stringByAppendingPathComponent(nullptr)->UTF8String(), "/a");
}

TEST(NSString, DescribesItselfPlainlyAndQuotedInsideACollection) {
  EXPECT_EQ(str("a b\"")->description(), "a b\"");
  EXPECT_EQ(str("abc09")->descriptionWithIndent(3), "abc09");
  EXPECT_EQ(str("")->descriptionWithIndent(0), "\"\"");
  EXPECT_EQ(str("a b")->descriptionWithIndent(0), "\"a b\"");
  EXPECT_EQ(str("a.b-c/d")->descriptionWithIndent(0), "\"a.b-c/d\"");
  EXPECT_EQ(str("q\"\\\n\t\x01\x7F")->descriptionWithIndent(0), R"("q\"\\\n\t\001\177")");
  EXPECT_EQ(str("ä€😀")->descriptionWithIndent(0), R"("\U00e4\U20ac\Ud83d\Ude00")");
}

TEST(NSString, QuotesEveryASCIICharacter) {
  constexpr std::string_view bare = "09AZaz";
  constexpr std::string_view aroundBare = "/:@[`{";
  for (const char c : bare) EXPECT_EQ(quotedWhereNeeded(std::string(1, c)), std::string(1, c));
  for (const char c : aroundBare)
    EXPECT_EQ(quotedWhereNeeded(std::string(1, c)), "\"" + std::string(1, c) + "\"");
  EXPECT_EQ(quotedWhereNeeded("\a\b\t\n\v\f\r"), R"("\a\b\t\n\v\f\r")");
  EXPECT_EQ(quotedWhereNeeded("\x01\x06\x0e\x1f \x7e\x7f"), R"("\001\006\016\037 ~\177")");
  EXPECT_EQ(quotedWhereNeeded("\u0080"), R"("\U0080")");
}

TEST(Text, KeepsTheCharactersAtTheBordersOfEachForm) {
  for (const char32_t c : {U'\x7F', U'\x80', U'\x7FF', U'\x800', U'\xD7FF', U'\xE000', U'\xFFFF',
                           U'\x10000', U'\x10FFFF'}) {
    std::string text;
    appendUTF8(text, c);
    std::size_t position = 0;
    EXPECT_EQ(nextCodePoint(text, position), c);
    EXPECT_EQ(position, text.size());
    EXPECT_EQ(UTF8FromUTF16BigEndian(UTF16BigEndianFromUTF8(text)), text);
  }
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xDC\x00"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xDF\xFF"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xD8\x00\xDB\xFF"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xD8\x00\xE0\x00"sv), std::nullopt);
}

TEST(Text, WritesNumbersWithAnExponentWhereDigitsWouldBeMany) {
  EXPECT_EQ(shortestText(0), "0");
  EXPECT_EQ(shortestText(1e-4), "0.0001");
  EXPECT_EQ(shortestText(9.9e-5), "9.9e-05");
  EXPECT_EQ(shortestText(-1e16), "-10000000000000000");
  EXPECT_EQ(shortestText(1e17), "1e+17");
}

TEST(Text, ConvertsToUTF16AndBack) {
  const std::string text = "a\u00E4\u20AC\U0001F600\U0010FFFF";
  const std::string units = UTF16BigEndianFromUTF8(text);
  EXPECT_EQ(units, "\0a\0\xE4\x20\xAC\xD8\x3D\xDE\x00\xDB\xFF\xDF\xFF"sv);
  EXPECT_EQ(UTF8FromUTF16BigEndian(units), text);
}

TEST(Text, RefusesUTF16ThatIsNone) {
  EXPECT_EQ(UTF8FromUTF16BigEndian("\0"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xDE\x00"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xD8\x3D"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xD8\x3D\0a"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian("\xD8\x3D\xD8\x3D\xDE\x00"sv), std::nullopt);
  EXPECT_EQ(UTF8FromUTF16BigEndian(""sv), "");
}

}  // namespace
}  // namespace platform
