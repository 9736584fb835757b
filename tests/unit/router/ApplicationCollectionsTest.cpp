// SPDX-License-Identifier: Apache-2.0

#include "router/ApplicationCollections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HexBytes.h"
#include "router/RouterLimits.h"

namespace {

using router::applicationCollections;
using router::Usage;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<Usage> collectionsOf(const char* hex) {
  return applicationCollections(bytes(hex));
}

TEST(ApplicationCollections, AreTheOutermostOnes) {
  EXPECT_THAT(collectionsOf("05 01 09 02 a1 01 09 01 a1 00 c0 c0 05 0c 09 01 a1 01 c0"),
              ElementsAre(Usage{1, 2}, Usage{0xc, 1}));
}

TEST(ApplicationCollections, AUsageMayBringItsOwnPage) {
  EXPECT_THAT(collectionsOf("05 01 0b 02 00 0d 00 a1 01 c0"), ElementsAre(Usage{0xd, 2}));
}

TEST(ApplicationCollections, ThePageIsTheOneInForceAtTheCollection) {
  EXPECT_THAT(collectionsOf("09 02 05 0d a1 01 c0"), ElementsAre(Usage{0xd, 2}));
  EXPECT_THAT(collectionsOf("05 01 a4 05 0d b4 09 02 a1 01 c0"), ElementsAre(Usage{1, 2}));
}

TEST(ApplicationCollections, TheFirstUsageCountsAndEachIsListedOnce) {
  EXPECT_THAT(collectionsOf("05 01 09 02 09 06 a1 01 c0 09 02 a1 01 c0"), ElementsAre(Usage{1, 2}));
  EXPECT_THAT(collectionsOf("05 01 19 04 29 05 a1 01 c0"), ElementsAre(Usage{1, 4}));
}

TEST(ApplicationCollections, AUsageOfSomethingElseIsNotTheCollections) {
  EXPECT_THAT(collectionsOf("05 01 09 02 81 03 a1 01 c0"), ElementsAre(Usage{1, 0}));
}

TEST(ApplicationCollections, WhatPrecedesAnErrorCounts) {
  EXPECT_THAT(collectionsOf("05 01 09 02 a1 01 c0 06 01"), ElementsAre(Usage{1, 2}));
  EXPECT_THAT(collectionsOf("c0 c0 b4 05 01 09 02 a1 01"), ElementsAre(Usage{1, 2}));
  EXPECT_THAT(applicationCollections({}), IsEmpty());
}

TEST(ApplicationCollections, AreSoManyAtMost) {
  std::vector<std::uint8_t> descriptor{0x05, 0x01};
  for (int usage = 0; usage < 200; ++usage) {
    const std::vector<std::uint8_t> collection{0x09, static_cast<std::uint8_t>(usage), 0xa1, 0x01,
                                               0xc0};
    descriptor.insert(descriptor.end(), collection.begin(), collection.end());
  }
  EXPECT_EQ(applicationCollections(descriptor).size(), router::RouterLimits::kListedCollections);
}

}  // namespace
