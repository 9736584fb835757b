#include "diagnostics/LabelSearch.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "diagnostics/LogExcerpt.h"

namespace diagnostics {
namespace {

TEST(LabelSearch, FindsTheLabelAtEveryPlaceOfEveryLength) {
  const std::string label(routerLabel);
  for (std::size_t before = 0; before < 150; ++before) {
    for (const std::size_t behind : {0, 1, 15, 16, 31, 32, 63, 64, 100}) {
      const std::string text = std::string(before, 'q') + label + std::string(behind, 'c');
      for (const std::size_t start : {std::size_t{0}, before / 2, before})
        ASSERT_EQ(findRouterLabel(text, start), before) << before << ' ' << behind << ' ' << start;
      ASSERT_EQ(findRouterLabel(text, before + 1), std::string::npos);
      ASSERT_EQ(findRouterLabel(text.substr(0, before + label.size() - 1), 0), std::string::npos);
    }
  }
}

TEST(LabelSearch, AStartBehindTheTextFindsNothing) {
  EXPECT_EQ(findRouterLabel("", 0), std::string::npos);
  EXPECT_EQ(findRouterLabel(routerLabel, routerLabel.size()), std::string::npos);
  EXPECT_EQ(findRouterLabel(routerLabel, routerLabel.size() + 5), std::string::npos);
}

TEST(LabelSearch, AnswersAsAPlainSearchOnTextsMadeOfTheLabelsPieces) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    const auto pieces = random() % 12;
    for (std::size_t i = 0; i < pieces; ++i) {
      const std::size_t from = random() % routerLabel.size();
      const std::size_t length = random() % 3 == 0 ? routerLabel.size() : random() % 30;
      text += routerLabel.substr(random() % 2 == 0 ? 0 : from, length);
    }
    const std::size_t start = text.empty() ? 0 : random() % text.size();
    ASSERT_EQ(findRouterLabel(text, start), text.find(routerLabel, start)) << text;
  }
}

}  // namespace
}  // namespace diagnostics
