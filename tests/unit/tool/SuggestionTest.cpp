// SPDX-License-Identifier: Apache-2.0

#include "tool/command/Suggestion.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

std::string suggestionFor(std::string_view typed) {
  return closestTo(typed, {"status", "install", "uninstall", "inspect", "devices", "route", "log",
                           "report", "doctor", "help"});
}

TEST(Suggestion, IsTheNearestWord) {
  EXPECT_EQ(suggestionFor("stauts"), "status");
  EXPECT_EQ(suggestionFor("instal"), "install");
  EXPECT_EQ(suggestionFor("unistall"), "uninstall");
  EXPECT_EQ(suggestionFor("device"), "devices");
  EXPECT_EQ(suggestionFor("logs"), "log");
  EXPECT_EQ(suggestionFor("rout"), "route");
}

TEST(Suggestion, IsNothingWhereNothingIsNear) {
  EXPECT_EQ(suggestionFor("fly"), "");
  EXPECT_EQ(suggestionFor(""), "");
  EXPECT_EQ(suggestionFor(std::string(100'000, 'x')), "");
}

TEST(Suggestion, AThirdOfTheLettersMayBeWrong) {
  EXPECT_EQ(closestTo("abxye", {"abcde"}), "") << "two of five";
  EXPECT_EQ(closestTo("abxyef", {"abcdef"}), "abcdef") << "two of six";
  EXPECT_EQ(closestTo("abxyzf", {"abcdef"}), "") << "three of six";
  EXPECT_EQ(closestTo("x", {"y"}), "y") << "at least one";
  EXPECT_EQ(closestTo("xx", {"yy"}), "");
}

TEST(Suggestion, LettersMayBeSwappedAnywhere) {
  EXPECT_EQ(closestTo("ba", {"ab"}), "ab");
  EXPECT_EQ(closestTo("bacd", {"abcd"}), "abcd");
  EXPECT_EQ(closestTo("abdc", {"abcd"}), "abcd");
  EXPECT_EQ(closestTo("cba", {"abc"}), "") << "not neighbours";
  EXPECT_EQ(closestTo("aab", {"bbb"}), "");
}

TEST(Suggestion, LettersMayBePutInOrLeftOutAtBothEnds) {
  for (const char* typed : {"bcd", "abc", "acd", "xabcd", "abcdx", "abxcd"})
    EXPECT_EQ(closestTo(typed, {"abcd"}), "abcd") << typed;
}

TEST(Suggestion, IsNothingForWhatIsLongerThanAnyWord) {
  const std::string word(32, 'x');
  EXPECT_EQ(closestTo(std::string(31, 'x') + "y", {word}), word);
  EXPECT_EQ(closestTo(word + "y", {word}), "");
}

TEST(Suggestion, IsNothingWhereTwoAreAsNear) {
  EXPECT_EQ(closestTo("cat", {"bat", "hat"}), "");
  EXPECT_EQ(closestTo("cat", {"bat", "hat", "cat"}), "cat");
  EXPECT_EQ(closestTo("cat", {"cat", "bat"}), "cat");
  EXPECT_EQ(closestTo("cat", {"bat", "hat", "rat"}), "");
}

}  // namespace
}  // namespace tool
