// SPDX-License-Identifier: Apache-2.0

// What the registry knows without a session; the rest shows in the router's tests.
#include "router/SessionRegistry.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using router::SessionRegistry;
constexpr SessionRegistry::Clock::duration kNone{};

std::shared_ptr<SessionRegistry> registry(bool isShared = false) {
  return std::make_shared<SessionRegistry>(router::RouterLimits(), isShared);
}

TEST(SessionRegistry, CountsSessionsWhereTheyAreAllOneUsers) {
  const auto own = registry();
  EXPECT_EQ(own->takeNumber(), 1U);
  EXPECT_EQ(own->takeNumber(), 2U);
}

TEST(SessionRegistry, ASharedOnesNumbersTellNothing) {
  const auto shared = registry(true);
  std::set<std::uint64_t> numbers;
  for (int i = 0; i < 8; ++i) numbers.insert(shared->takeNumber());
  EXPECT_GT(numbers.size(), 4U);
  EXPECT_GT(*numbers.rbegin(), 1000U) << "eight small numbers out of a million";
  EXPECT_GE(*numbers.begin(), 1U);
  EXPECT_LE(*numbers.rbegin(), 999'999U);
}

TEST(SessionRegistry, AVisitKeepsTheRouterInUse) {
  const auto own = registry();
  auto visit = own->visit();
  auto another = own->visit();
  ASSERT_NE(visit, nullptr);
  EXPECT_FALSE(own->closeIfUnused(kNone));
  visit.reset();
  EXPECT_FALSE(own->closeIfUnused(kNone));
  another.reset();
  EXPECT_FALSE(own->closeIfUnused(std::chrono::hours(1)));
  EXPECT_TRUE(own->closeIfUnused(kNone));
  EXPECT_FALSE(own->closeIfUnused(kNone)) << "it has closed before";
  EXPECT_EQ(own->visit(), nullptr);
}

TEST(SessionRegistry, AStopIsTheEndOfVisitsAndOfWaiting) {
  const auto own = registry();
  EXPECT_TRUE(own->waitForChange(std::chrono::hours(1), std::chrono::hours(1)));
  EXPECT_TRUE(own->takeChange());
  EXPECT_FALSE(own->takeChange());
  EXPECT_TRUE(own->stop());
  EXPECT_FALSE(own->stop());
  EXPECT_EQ(own->visit(), nullptr);
  EXPECT_FALSE(own->waitForChange(std::chrono::hours(1), std::chrono::hours(1)));
}

}  // namespace
