// SPDX-License-Identifier: Apache-2.0

#include "input/Backoff.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

TEST(Backoff, DoublesUpToALimitAndBeginsAnewAfterASuccess) {
  wlhid::Backoff backoff;
  std::vector<long> delays;
  for (int i = 0; i < 10; ++i) delays.push_back(backoff.next().count());
  EXPECT_THAT(delays,
              testing::ElementsAre(100, 200, 400, 800, 1600, 3200, 6400, 12'800, 15'000, 15'000));
  backoff.reset();
  EXPECT_EQ(backoff.next().count(), 100);
  EXPECT_EQ(backoff.next().count(), 200);
}

}  // namespace
