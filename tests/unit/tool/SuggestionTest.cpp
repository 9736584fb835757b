#include "tool/Suggestion.h"

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

TEST(Suggestion, IsNothingWhereTwoAreAsNear) {
  EXPECT_EQ(closestTo("cat", {"bat", "hat"}), "");
  EXPECT_EQ(closestTo("cat", {"bat", "hat", "cat"}), "cat");
}

}  // namespace
}  // namespace tool
