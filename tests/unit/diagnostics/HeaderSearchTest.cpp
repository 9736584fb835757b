// SPDX-License-Identifier: Apache-2.0

#include "diagnostics/HeaderSearch.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/foundation/NSString.h"
#include "platform/foundation/Text.h"
#include "tests/support/HeaderOracle.h"

namespace diagnostics {
namespace {

using testsupport::HeaderOracle;

constexpr std::string_view kUsual = "Nov 21 03:12:45 host com.quillmar.hideventrouter[345]: text";

std::string utf8(char32_t c) {
  std::string text;
  platform::appendUTF8(text, c);
  return text;
}

TEST(HeaderPattern, StandsInTheCodeToTheLetter) {
  EXPECT_EQ(kHeaderPattern.size(), 168U);
  EXPECT_EQ(kHeaderPattern, HeaderOracle::kPattern);
}

TEST(HeaderSearch, LettersMatchInBothCasesAndTheirRelativesOutsideASCII) {
  for (const std::string month : {"Nov", "nOV", "\u017Fep", "o\u212At", "S\u017F\u212A"})
    EXPECT_TRUE(beginsWithHeader(month + " 21 03:12:45 host K\u017F\u212A[1]\u017F\u212A:"))
        << month;
  for (const std::string month : {"N\u00F6v", "\uFF2Eov", "N0v", "@ov", "[ov", "`ov", "{ov"})
    EXPECT_FALSE(beginsWithHeader(month + " 21 03:12:45 host p[1]:")) << month;
}

TEST(HeaderSearch, ForeignBlanksAreUnicodesAndNoOthers) {
  const auto isBlank = [](char32_t c) {
    const std::string line = "Nov 21 03:12:45" + utf8(c) + "host p[1]:";
    // Any other character belongs to the host.
    EXPECT_NE(beginsWithHeader(line), beginsWithHeader("Nov 21 03:12:45 h" + utf8(c) + " p[1]:"));
    return beginsWithHeader(line);
  };
  for (const char32_t blank :
       {0x85, 0xA0, 0x1680, 0x2000, 0x2005, 0x200A, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000})
    EXPECT_TRUE(isBlank(blank)) << std::hex << std::uint32_t{blank};
  for (const char32_t other :
       {0x84,   0x86,   0x9F,   0xA1,   0x167F, 0x1681, 0x1FFF, 0x200B, 0x2027, 0x202A,
        0x202E, 0x2030, 0x205E, 0x2060, 0x2FFF, 0x3001, 0x17E,  0x180,  0x2129, 0x212B})
    EXPECT_FALSE(isBlank(other)) << std::hex << std::uint32_t{other};
}

TEST(HeaderSearch, TheUsualLineIsAHeader) {
  EXPECT_TRUE(beginsWithHeader(kUsual));
  EXPECT_TRUE(beginsWithHeader("nov  1 3:1:4 h p[1](com.example.job[7])  Restart 2.0:"));
}

TEST(HeaderSearch, AProcessNameWithADigitMakesNoHeader) {
  EXPECT_FALSE(beginsWithHeader("Nov 21 03:12:45 host router2[345]: text"));
}

TEST(HeaderSearch, NothingMayStandBeforeTheMonth) {
  EXPECT_FALSE(beginsWithHeader(" " + std::string(kUsual)));
  EXPECT_FALSE(beginsWithHeader("\xEF\xBB\xBF" + std::string(kUsual)));
  EXPECT_FALSE(beginsWithHeader("\t"));
  EXPECT_FALSE(beginsWithHeader(""));
}

TEST(HeaderSearch, TheLineFeedEndsTheLine) {
  EXPECT_TRUE(beginsWithHeader(std::string(kUsual) + "\nnext"));
  for (std::size_t i = 0; i < kUsual.find(": "); ++i) {
    auto broken = std::string(kUsual);
    broken.insert(i, 1, '\n');
    EXPECT_FALSE(beginsWithHeader(broken)) << i;
    broken.erase(i + 1, 1);
    EXPECT_FALSE(beginsWithHeader(broken)) << i;
  }
}

TEST(HeaderSearch, EveryLineCutShortOrWithOneCharacterLessAnswersAsICU) {
  HeaderOracle oracle;
  for (std::size_t i = 0; i <= kUsual.size(); ++i) {
    const auto start = kUsual.substr(0, i);
    EXPECT_EQ(beginsWithHeader(start), oracle.isHeader(start)) << start;
    auto without = std::string(kUsual);
    if (i < without.size()) without.erase(i, 1);
    EXPECT_EQ(beginsWithHeader(without), oracle.isHeader(without)) << without;
    auto twice = std::string(kUsual);
    if (i < twice.size()) twice.insert(i, 1, twice[i]);
    EXPECT_EQ(beginsWithHeader(twice), oracle.isHeader(twice)) << twice;
  }
}

/// The pattern's own characters, and those on which regex engines are known to differ.
std::vector<std::string> hostileAlphabet() {
  std::vector<std::string> characters;
  for (const char c : std::string_view("AZaznovksSK019:[]().-_ \t\v\f\r/\\@'\x1C\x1F\x7F"))
    characters.emplace_back(1, c);
  characters.emplace_back(1, '\0');
  for (const char32_t c :
       {0x80,   0x85,   0xA0,   0xDF,   0x130,  0x131,  0x17F,  0x1E9E,  0x1680,
        0x180E, 0x2000, 0x200A, 0x200B, 0x200D, 0x2028, 0x2029, 0x202F,  0x205F,
        0x2060, 0x212A, 0x3000, 0xFEFF, 0xFF21, 0x660,  0xFF11, 0x1D7CE, 0x10FFFF})
    characters.push_back(utf8(c));
  return characters;
}

/// Made of a usual line's parts, so that many lines match much of the pattern.
std::string randomLine(std::mt19937& random, const std::vector<std::string>& alphabet) {
  static const std::vector<std::vector<std::string>> parts = {{"Nov", "nov", "ſep", "oKt", "No"},
                                                              {" ", "  ", "\u00A0", "\r\t"},
                                                              {"1", "21", "211", ""},
                                                              {" ", "\u3000", ""},
                                                              {"03", "3"},
                                                              {":"},
                                                              {"12", "2"},
                                                              {":", ";"},
                                                              {"45"},
                                                              {" ", "\v", "\u0085"},
                                                              {"host", "h\u200Bo", "\u180E", "é€😀"},
                                                              {" ", "\f"},
                                                              {"com.x-y_z", "kſ.K", "p2"},
                                                              {"["},
                                                              {"345", "0", ""},
                                                              {"]"},
                                                              {"", " (a[7]) \u2028.", "ſK", "-"},
                                                              {":", ""},
                                                              {"text", ""}};
  std::string line;
  for (const auto& choices : parts) {
    const bool usualOne = random() % 4 != 0;
    line += choices[usualOne ? 0 : random() % choices.size()];
    if (random() % 24 == 0) line += alphabet[random() % alphabet.size()];
  }
  return line;
}

TEST(HeaderSearch, RandomLinesOfAHostileAlphabetAnswerAsICU) {
  HeaderOracle oracle;
  std::mt19937 random(20);
  const auto alphabet = hostileAlphabet();
  std::size_t headers = 0;
  for (int round = 0; round < 200000; ++round) {
    const std::string line = randomLine(random, alphabet);
    const bool answer = beginsWithHeader(line);
    headers += answer ? 1 : 0;
    ASSERT_EQ(answer, oracle.isHeader(line)) << line;
  }
  EXPECT_GT(headers, 20000U);
  EXPECT_LT(headers, 180000U);
}

TEST(HeaderSearch, RandomMutationsOfTheUsualLineAnswerAsICU) {
  HeaderOracle oracle;
  std::mt19937 random(21);
  const auto alphabet = hostileAlphabet();
  for (int round = 0; round < 200000; ++round) {
    std::string line(kUsual);
    for (auto changes = random() % 3 + 1; changes > 0; --changes) {
      const std::size_t at = random() % 48;
      line.replace(at, random() % 2, alphabet[random() % alphabet.size()]);
      if (!platform::isValidUTF8(line)) line = kUsual;
    }
    ASSERT_EQ(beginsWithHeader(line), oracle.isHeader(line)) << line;
  }
}

TEST(HeaderSearch, ALineThatArrivesInPiecesAnswersAsWhole) {
  std::mt19937 random(22);
  const auto alphabet = hostileAlphabet();
  for (int round = 0; round < 50000; ++round) {
    const std::string line = randomLine(random, alphabet);
    HeaderSearch search;
    auto answer = HeaderSearch::Answer::open;
    for (std::size_t length = 0; answer == HeaderSearch::Answer::open && length <= line.size();
         length += 1 + random() % 3)
      answer = search.advance(std::string_view(line).substr(0, length));
    if (answer == HeaderSearch::Answer::open) answer = search.advance(line);
    ASSERT_EQ(answer == HeaderSearch::Answer::found, beginsWithHeader(line)) << line;
  }
}

TEST(HeaderSearch, AHostNameOfFiveMegabytesOnWhichICUGivesUpIsAHostName) {
  const std::string host(5 * 1024 * 1024, 'h');
  const std::string header = "Nov 21 03:12:45 " + host + " p[1]: text";
  HeaderOracle oracle;
  EXPECT_EQ(oracle.isHeader(header), std::nullopt);
  EXPECT_TRUE(beginsWithHeader(header));
  EXPECT_FALSE(beginsWithHeader("Nov 21 03:12:45 " + host));
  EXPECT_FALSE(beginsWithHeader("Nov 21 03:12:45 " + host + " p1[1]: text"));
}

TEST(HeaderSearch, LongRunsElsewhereAreNoMatterEither) {
  const std::string letters(5 * 1024 * 1024, 'p');
  const std::string digits(5 * 1024 * 1024, '1');
  const std::string blanks(5 * 1024 * 1024, ' ');
  EXPECT_TRUE(
      beginsWithHeader("Nov 21 03:12:45 host " + letters + "[" + digits + "]" + blanks + ":"));
  EXPECT_FALSE(
      beginsWithHeader("Nov 21 03:12:45 host " + letters + "[" + digits + "]" + blanks + "-:"));
  EXPECT_FALSE(beginsWithHeader("Nov" + blanks + "21 03:12:45 host p[1]:"));
}

}  // namespace
}  // namespace diagnostics
