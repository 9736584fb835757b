// SPDX-License-Identifier: Apache-2.0

#include "platform/services/VersionOrder.h"

#include <gtest/gtest.h>

namespace {

using platform::consistsOfNumbers;
using platform::isNewer;

TEST(VersionOrder, ComparesNumberByNumber) {
  EXPECT_TRUE(isNewer("2.0", "1.0"));
  EXPECT_TRUE(isNewer("1.10", "1.9"));
  EXPECT_TRUE(isNewer("1.0.1", "1.0"));
  EXPECT_FALSE(isNewer("1.0", "2.0"));
  EXPECT_FALSE(isNewer("1.0", "1.0"));
  EXPECT_FALSE(isNewer("1.0", "1.0.0"));
  EXPECT_FALSE(isNewer("1.0", "1.0.1"));
}

TEST(VersionOrder, WithoutNumbersNothingIsNewer) {
  EXPECT_FALSE(isNewer("two", "1.0"));
  EXPECT_FALSE(isNewer("2.x", "2.0"));
  EXPECT_FALSE(isNewer("", "1.0"));
}

TEST(VersionOrder, OnlyNumbersWithDotsBetweenThemCanBeCompared) {
  for (const char* version : {"1", "1.0", "0.10.2000"}) EXPECT_TRUE(consistsOfNumbers(version));
  for (const char* version : {"", ".", "1.", ".1", "1..2", "v1", "1.0 beta", "-1", "1.x"})
    EXPECT_FALSE(consistsOfNumbers(version)) << version;
}

}  // namespace
