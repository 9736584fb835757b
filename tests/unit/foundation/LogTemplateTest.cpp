// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/LogTemplate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "platform/foundation/NSString.h"

namespace platform {
namespace {

using testing::ElementsAre;

constexpr LogTemplate kPlain{"router ends"};
constexpr LogTemplate kText{"ignored: {text}"};
constexpr LogTemplate kRoutes{"session {count}: routes {device} ({text}) of {private}"};
constexpr LogTemplate kCode{"cannot: Code={code} {text}"};
constexpr LogTemplate kEnded{"{label}[{count}] exited with status {count}"};
constexpr LogTemplate kVersion{"version {version} is here"};
constexpr std::array kRows{&kPlain, &kText, &kRoutes, &kCode, &kEnded, &kVersion};

std::vector<std::string> argumentsOf(std::string_view line, const LogTemplate& row) {
  const auto match = recogniseLogLine(line, kRows);
  if (!match) return {"unknown"};
  EXPECT_EQ(match->row, &row);
  return {match->arguments.begin(), match->arguments.end()};
}

bool isKnown(std::string_view line) {
  return recogniseLogLine(line, kRows).has_value();
}

// ---- A line can only be made from a row

static_assert(!std::is_constructible_v<LogLine, std::string>);
static_assert(!std::is_constructible_v<LogLine, std::string_view>);
static_assert(!std::is_constructible_v<LogLine, const char*>);
static_assert(!std::is_convertible_v<const char*, LogLine>);
static_assert(!std::is_default_constructible_v<LogLine>);

TEST(LogTemplate, TakesALineApart) {
  EXPECT_EQ(kRoutes.places(), 4U);
  EXPECT_EQ(kRoutes.literal(0), "session ");
  EXPECT_EQ(kRoutes.place(1), LogPlace::Device);
  EXPECT_EQ(kRoutes.literal(2), " (");
  EXPECT_EQ(kRoutes.literal(4), "");
  EXPECT_EQ(kPlain.places(), 0U);
  EXPECT_EQ(kPlain.literal(0), "router ends");
}

TEST(LogTemplate, ALineIsItsLiteralsAndItsArguments) {
  EXPECT_EQ(LogLine::of<kPlain>().text(), "router ends");
  EXPECT_EQ(LogLine::of<kRoutes>(3, std::uint64_t{0x100000abc}, "A Mouse", 1000U).text(),
            "session 3: routes device 0x100000abc (A Mouse) of 1000");
  EXPECT_EQ(LogLine::of<kCode>(-536870208LL, std::string("\"no\"")).text(),
            "cannot: Code=-536870208 \"no\"");
  EXPECT_EQ(LogLine::of<kEnded>("com.quillmar.x_y-z", 345, 0).text(),
            "com.quillmar.x_y-z[345] exited with status 0");
  EXPECT_EQ(LogLine::of<kVersion>("1.0~beta+2").text(), "version 1.0~beta+2 is here");
}

TEST(LogTemplate, AnArgumentIsMadeToFitItsPlace) {
  EXPECT_EQ(LogLine::of<kText>("a\nb\x1b[2J\tc\xff").text(), "ignored: a\\x0ab\\x1b[2J c\\xff");
  EXPECT_EQ(LogLine::of<kEnded>("a b\n[", 1, 2).text(), "a_b__[1] exited with status 2");
  EXPECT_EQ(LogLine::of<kEnded>("", 1, 2).text(), "_[1] exited with status 2");
  EXPECT_EQ(LogLine::of<kVersion>(std::string(50, '1')).text(),
            "version " + std::string(32, '1') + " is here");
}

TEST(LogTemplate, ALongTextIsCutAndWhatFollowsItStays) {
  const std::string thousand(1000, 'x');
  EXPECT_EQ(LogLine::of<kText>(thousand).text(), "ignored: " + thousand);
  for (const char* part : {"x", "é", "€", "\xff", "🐹"}) {
    std::string text;
    while (text.size() < (std::size_t{10} << 20)) text += part;
    const std::string line = LogLine::of<kRoutes>(1, 2U, text, 3).text();
    EXPECT_LE(line.size(), kMaximumLogLineBytes);
    EXPECT_TRUE(line.ends_with("…) of 3")) << line.substr(line.size() - 20);
    EXPECT_TRUE(isValidUTF8(line));
    EXPECT_TRUE(isKnown(line));
  }
}

TEST(LogTemplate, EveryLineIsRecognisedByItsRow) {
  EXPECT_THAT(argumentsOf("router ends", kPlain), ElementsAre());
  EXPECT_THAT(argumentsOf("ignored: a: b", kText), ElementsAre("a: b"));
  EXPECT_THAT(argumentsOf("ignored: ", kText), ElementsAre(""));
  EXPECT_THAT(argumentsOf("session 3: routes device 0xabc (A (7) Mouse) of 1000", kRoutes),
              ElementsAre("3", "device 0xabc", "A (7) Mouse", "1000"));
  EXPECT_THAT(argumentsOf("cannot: Code=-5 \"x\"", kCode), ElementsAre("-5", "\"x\""));
  EXPECT_THAT(argumentsOf("a.b[1] exited with status 2", kEnded), ElementsAre("a.b", "1", "2"));
  EXPECT_THAT(argumentsOf("version 1.0 is here", kVersion), ElementsAre("1.0"));
}

TEST(LogTemplate, ALineOfNoRowIsUnknown) {
  for (const char* line :
       {"", "router ends ", " router ends", "Router ends", "ignored:", "ignored",
        "session x: ", "session : routes device 0xabc (x) of 1",
        "session 3: routes device 0x (x) of 1", "session 3: routes device 0xABC (x) of 1",
        "session 3: routes device 0xabc (x) of -", "session --3: routes device 0xabc (x) of 1",
        "a b[1] exited with status 2", "[1] exited with status 2", "a[] exited with status 2",
        "version  is here", "a[1] exited with status 2.", "version 1/0 is here", "cannot: Code= x"})
    EXPECT_FALSE(isKnown(line)) << line;
}

TEST(LogTemplate, WhatNoProgramWritesIsUnknown) {
  EXPECT_TRUE(isKnown("a[" + std::string(20, '1') + "] exited with status 2"));
  EXPECT_FALSE(isKnown("a[" + std::string(21, '1') + "] exited with status 2"));
  EXPECT_TRUE(isKnown(std::string(200, 'a') + "[1] exited with status 2"));
  EXPECT_FALSE(isKnown(std::string(201, 'a') + "[1] exited with status 2"));
  EXPECT_FALSE(isKnown("session 3: routes device 0x" + std::string(17, 'a') + " (x) of 1"));
  EXPECT_FALSE(isKnown("version " + std::string(33, '1') + " is here"));
  EXPECT_TRUE(isKnown("ignored: " + std::string(1500, 'x')));
  EXPECT_FALSE(isKnown("ignored: " + std::string(1504, 'x')));
  EXPECT_FALSE(isKnown("ignored: " + std::string(10 << 20, 'x')));
}

// ---- Ambiguous lines

constexpr LogTemplate kOne{"it {text}"};
constexpr LogTemplate kOther{"it ended by {count}"};
constexpr LogTemplate kSuffix{"a {text} b"};
constexpr LogTemplate kLabels{"x {label}.{label}"};

TEST(LogTemplate, ALineThatTwoRowsCouldHaveWrittenIsUnknown) {
  const std::array rows{&kOne, &kOther};
  EXPECT_FALSE(recogniseLogLine("it ended by 9", rows));
  EXPECT_TRUE(recogniseLogLine("it ended by x", rows));
  const std::array alone{&kOther};
  EXPECT_TRUE(recogniseLogLine("it ended by 9", alone));
}

TEST(LogTemplate, ALineThatOneRowCouldHaveWrittenInTwoWaysIsUnknown) {
  const std::array rows{&kLabels, &kSuffix};
  EXPECT_TRUE(recogniseLogLine("x a.b", rows));
  EXPECT_FALSE(recogniseLogLine("x a.b.c", rows));
  EXPECT_TRUE(recogniseLogLine("a  b b b b", rows)) << "a text ends where its row says";
}

TEST(LogTemplate, NumbersAreWrittenWhole) {
  constexpr auto most = std::numeric_limits<std::uint64_t>::max();
  constexpr auto least = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(LogLine::of<kRoutes>(least, most, "", most).text(),
            "session -9223372036854775808: routes device 0xffffffffffffffff () of "
            "18446744073709551615");
  EXPECT_TRUE(isKnown(LogLine::of<kRoutes>(least, most, "", most)));
}

}  // namespace
}  // namespace platform
