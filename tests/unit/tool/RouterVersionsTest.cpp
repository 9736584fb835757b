#include "tool/RouterVersions.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

TEST(RouterVersions, CompareNumberByNumber) {
  EXPECT_TRUE(isNewer("2.0", "1.0"));
  EXPECT_TRUE(isNewer("1.10", "1.9"));
  EXPECT_TRUE(isNewer("1.0.1", "1.0"));
  EXPECT_FALSE(isNewer("1.0", "2.0"));
  EXPECT_FALSE(isNewer("1.0", "1.0"));
  EXPECT_FALSE(isNewer("1.0", "1.0.0"));
  EXPECT_FALSE(isNewer("1.0", "1.0.1"));
}

TEST(RouterVersions, WithoutNumbersAreNeverNewer) {
  EXPECT_FALSE(isNewer("two", "1.0"));
  EXPECT_FALSE(isNewer("2.x", "2.0"));
  EXPECT_FALSE(isNewer("", "1.0"));
}

TEST(RouterVersions, AnInstallForcesADowngradeOnly) {
  RouterVersions versions;
  versions.bundle.version = "1.0";
  EXPECT_EQ(installArguments(versions), (std::vector<std::string>{"install"}));
  versions.installed.emplace();
  versions.installed->version = "0.9";
  EXPECT_EQ(installArguments(versions), (std::vector<std::string>{"install"}));
  versions.installed->version = "2.0";
  EXPECT_EQ(installArguments(versions), (std::vector<std::string>{"install", "--force"}));
}

}  // namespace
}  // namespace tool
