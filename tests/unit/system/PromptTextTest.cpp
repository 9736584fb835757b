// SPDX-License-Identifier: Apache-2.0

#include "platform/system/PromptText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace platform::system;

/// What polkit makes of a message when it knows none of the placeholders' keys but "name".
std::string asPolkitShows(const std::string& message) {
  std::string shown;
  std::string key;
  bool isInKey = false;
  for (std::size_t i = 0; i < message.size(); ++i) {
    if (message.compare(i, 2, "$(") == 0) {
      isInKey = true;
      ++i;
    } else if (isInKey && message[i] == ')') {
      shown += key == "name" ? "SUBSTITUTED" : "$(" + key + ")";
      key.clear();
      isInKey = false;
    } else {
      (isInKey ? key : shown) += message[i];
    }
  }
  return shown;
}

TEST(PromptText, OrdinaryTextStaysAsItIs) {
  EXPECT_EQ(promptText("Foot Switch 3 (left), 5 €"), "Foot Switch 3 (left), 5 €");
  EXPECT_EQ(quotedPromptText("Painter’s Pen"), "“Painter’s Pen”");
}

TEST(PromptText, IsOneLineWithNothingHidden) {
  EXPECT_EQ(promptText("a\nb\tc\x1b[2J"), "a\\x0ab c\\x1b[2J");
  EXPECT_EQ(promptText("a\u202Eb\u200B"), "a\\u202eb\\u200b");
  EXPECT_EQ(promptText("\xFF"), "\\xff");
}

TEST(PromptText, IsBounded) {
  EXPECT_EQ(promptText(std::string(100, 'x')), std::string(79, 'x') + "…");
  EXPECT_EQ(quotedPromptText("abcdef", 4), "“abc…”");
}

TEST(PromptText, CannotEndItsQuotation) {
  EXPECT_EQ(quotedPromptText("x” is trusted. “"), "“x' is trusted. '”");
  for (const char* mark : {"\"", "“", "”", "„", "‟", "«", "»", "″", "❝", "❞", "〝", "〞", "＂"})
    EXPECT_EQ(promptText(std::string("a") + mark + "b"), "a'b");
}

TEST(PromptText, HasNoTags) {
  EXPECT_EQ(promptText("<b>Trusted</b>"), "‹b›Trusted‹/b›");
}

TEST(PromptText, MeansNothingToPolkit) {
  for (const std::string text : {"$(name)", "$(", "$$(name)", "a $( b", "$($(name))", "$"}) {
    const std::string message = "Allow " + quotedPromptText(text) + " to read (all of) it?";
    EXPECT_EQ(asPolkitShows(message), message);
  }
  EXPECT_EQ(promptText("$(name) costs $5"), "$ (name) costs $5");
}

TEST(Placeholders, AreGoneFromAMessageEvenWhereItsPartsMeet) {
  const std::string message = withoutPlaceholders(promptText("5 $") + "(left) “quoted” <x>");
  EXPECT_EQ(message, "5 $ (left) “quoted” <x>");
  EXPECT_EQ(asPolkitShows(message), message);
}

}  // namespace
