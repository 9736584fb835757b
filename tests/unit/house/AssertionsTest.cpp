// SPDX-License-Identifier: Apache-2.0

// How everything of this project is compiled.
#include <gtest/gtest.h>

#include <csignal>
#include <span>
#include <vector>

namespace {

TEST(AssertionsDeathTest, AnIndexOutOfBoundsEndsTheProcess) {
  const std::vector<int> numbers(3, 1);
  const std::span<const int> seen(numbers);
  const volatile std::size_t index = 3;
  EXPECT_EXIT(static_cast<void>(seen[index]), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(static_cast<void>(numbers[index]), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
