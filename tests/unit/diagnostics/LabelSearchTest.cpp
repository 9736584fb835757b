// SPDX-License-Identifier: Apache-2.0

#include "diagnostics/LabelSearch.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "diagnostics/LogExcerpt.h"

namespace diagnostics {
namespace {

using Places = std::vector<std::size_t>;

/// All positions from `start` on.
Places found(std::string_view text, std::size_t start) {
  Places all;
  for (auto at = findRouterLabel(text, start); at != std::string_view::npos;
       at = findRouterLabel(text, at + 1))
    all.push_back(at);
  return all;
}

Places expected(std::string_view text, std::size_t start) {
  Places all;
  for (auto at = text.find(kRouterLabel, start); at != std::string_view::npos;
       at = text.find(kRouterLabel, at + 1))
    all.push_back(at);
  return all;
}

TEST(LabelSearch, FindsTheLabelAtEveryPlaceOfEveryLength) {
  const std::string label(kRouterLabel);
  for (std::size_t before = 0; before < 600; ++before) {
    for (const std::size_t after : {0, 1, 15, 16, 31, 32, 63, 64, 255, 256, 300}) {
      const std::string text = std::string(before, 'q') + label + std::string(after, '.');
      for (const std::size_t start : {std::size_t{0}, before / 2, before})
        ASSERT_EQ(found(text, start), Places{before}) << before << ' ' << after << ' ' << start;
      ASSERT_EQ(found(text, before + 1), Places{});
      ASSERT_EQ(found(text.substr(0, before + label.size() - 1), 0), Places{});
    }
  }
}

TEST(LabelSearch, AStartPastTheTextFindsNothing) {
  EXPECT_EQ(found("", 0), Places{});
  EXPECT_EQ(found(kRouterLabel, kRouterLabel.size()), Places{});
  EXPECT_EQ(found(kRouterLabel, kRouterLabel.size() + 5), Places{});
}

TEST(LabelSearch, FindsItFarAfterThingsThatLookLikeIt) {
  for (const std::size_t distance : {500, 511, 512, 513, 2000, 2047, 5000}) {
    for (std::size_t period = 1; period < 400; period += 13) {
      std::string text(distance, 'x');
      for (std::size_t i = 0; i + 2 < distance; i += period) text.replace(i, 2, ".q");
      text += kRouterLabel;
      ASSERT_EQ(found(text, 0), Places{distance});
      ASSERT_EQ(found(text + std::string(300, '.'), 0), Places{distance});
    }
  }
}

TEST(LabelSearch, AnswersAsAPlainSearchOnTextsMadeOfTheLabelsPieces) {
  std::mt19937 random(1);
  std::size_t labels = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    const auto pieces = random() % 60;
    for (std::size_t i = 0; i < pieces; ++i) {
      const std::size_t from = random() % kRouterLabel.size();
      const std::size_t length = random() % 3 == 0 ? kRouterLabel.size() : random() % 30;
      text += kRouterLabel.substr(random() % 2 == 0 ? 0 : from, length);
    }
    const std::size_t start = text.empty() ? 0 : random() % text.size();
    const auto places = expected(text, start);
    labels += places.size();
    ASSERT_EQ(found(text, start), places) << text;
  }
  EXPECT_GT(labels, 50000U);
}

}  // namespace
}  // namespace diagnostics
