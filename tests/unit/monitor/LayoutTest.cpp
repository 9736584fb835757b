// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace tool::monitor {
namespace {

std::vector<Contents> everyContents() {
  std::vector<Contents> all{{}};
  for (const std::size_t elements : {0, 3, 40, 1024})
    for (const std::size_t paths : {0, 1, 4})
      for (const std::size_t keys : {0, 3, 300}) all.push_back({true, elements, paths, keys});
  return all;
}

bool overlap(const Rect& one, const Rect& other) {
  return one.row < other.row + other.rows && other.row < one.row + one.rows &&
         one.column < other.column + other.columns && other.column < one.column + one.columns;
}

void expectSound(int rows, int columns, const Contents& contents, View view) {
  const auto panes = layoutOf(rows, columns, contents, view);
  ASSERT_FALSE(panes.empty());
  for (std::size_t i = 0; i < panes.size(); ++i) {
    const Rect& rect = panes[i].rect;
    EXPECT_GE(rect.rows, 2) << "a title and a line at " << rows << "x" << columns;
    EXPECT_GE(rect.columns, 10);
    EXPECT_GE(rect.row, contents.hasDevice ? 3 : 1);
    EXPECT_GE(rect.column, 0);
    EXPECT_LT(rect.row + rect.rows, rows) << "the last row is for the keys";
    EXPECT_LE(rect.column + rect.columns, columns);
    for (std::size_t j = 0; j < i; ++j) EXPECT_FALSE(overlap(rect, panes[j].rect));
  }
}

TEST(Layout, FitsOnEveryScreenThatIsLargeEnough) {
  for (int rows = kLeastRows; rows <= 100; rows += rows < 30 ? 1 : 7)
    for (int columns = kLeastColumns; columns <= 300; columns += 13)
      for (const Contents& contents : everyContents())
        for (const View view :
             {View::All, View::Devices, View::Elements, View::Path, View::Board, View::Reports})
          expectSound(rows, columns, contents, view);
}

TEST(Layout, HasNothingOnASmallerOne) {
  EXPECT_TRUE(layoutOf(kLeastRows - 1, 80, {}, View::All).empty());
  EXPECT_TRUE(layoutOf(24, kLeastColumns - 1, {}, View::All).empty());
}

TEST(Layout, ShowsTheDevicesWhereThereIsRoom) {
  const Contents contents{true, 6, 1, 3};
  EXPECT_FALSE(showsDevices(24, 80, contents, View::All));
  EXPECT_TRUE(showsDevices(24, 80, contents, View::Devices));
  EXPECT_TRUE(showsDevices(24, 80, {}, View::All)) << "there is nothing else";
  EXPECT_TRUE(showsDevices(40, 120, contents, View::All));
  EXPECT_FALSE(showsDevices(40, 120, contents, View::Path));
}

TEST(Layout, ShowsEverythingThatTheDeviceHas) {
  const auto has = [](const std::vector<Pane>& panes, View what) {
    return std::ranges::count(panes, what, &Pane::what) == 1;
  };
  for (const int columns : {80, 120, 300}) {
    const auto all = layoutOf(40, columns, {true, 6, 1, 3}, View::All);
    for (const View what : {View::Elements, View::Path, View::Board, View::Reports})
      EXPECT_TRUE(has(all, what)) << columns;
    const auto keysOnly = layoutOf(40, columns, {true, 6, 0, 3}, View::All);
    EXPECT_TRUE(has(keysOnly, View::Board));
    EXPECT_FALSE(has(keysOnly, View::Path));
    const auto neither = layoutOf(40, columns, {true, 6, 0, 0}, View::All);
    EXPECT_FALSE(has(neither, View::Board));
    EXPECT_TRUE(has(neither, View::Reports));
  }
}

}  // namespace
}  // namespace tool::monitor
