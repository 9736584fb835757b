// SPDX-License-Identifier: Apache-2.0

#include "platform/system/ProcessFiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace {

using namespace platform::system;

/// As the kernel writes it, with this name and start time.
std::string stat(const std::string& name, const std::string& startTime = "123456789") {
  return "4711 (" + name + ") S 1 4711 4711 0 -1 4194304 1 2 3 4 5 6 7 8 20 0 1 0 " + startTime +
         " 1000 200 18446744073709551615 1 1 0\n";
}

TEST(Stat, TheStartTimeIsField22) {
  EXPECT_EQ(startTimeInStat(stat("foot-pedal")), 123456789U);
  EXPECT_EQ(startTimeInStat(stat("x", "18446744073709551615")), UINT64_MAX);
}

TEST(Stat, AProcessMayBeCalledAnything) {
  EXPECT_EQ(startTimeInStat(stat("two words")), 123456789U);
  EXPECT_EQ(startTimeInStat(stat("")), 123456789U);
  EXPECT_EQ(startTimeInStat(stat(")")), 123456789U);
  EXPECT_EQ(startTimeInStat(stat(") S 1 1 1 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 42 0")), 123456789U);
  EXPECT_EQ(startTimeInStat(stat("a) R (b")), 123456789U);
  EXPECT_EQ(startTimeInStat(stat("line\nfeed")), 123456789U);
}

TEST(Stat, WhatTheKernelDoesNotWriteHasNoStartTime) {
  EXPECT_EQ(startTimeInStat(""), std::nullopt);
  EXPECT_EQ(startTimeInStat("4711 (cut"), std::nullopt);
  EXPECT_EQ(startTimeInStat("4711 (cut)"), std::nullopt);
  EXPECT_EQ(startTimeInStat("4711 (cut) S 1 2 3"), std::nullopt);
  EXPECT_EQ(startTimeInStat(stat("x", "")), std::nullopt);
  EXPECT_EQ(startTimeInStat(stat("x", "-1")), std::nullopt);
  EXPECT_EQ(startTimeInStat(stat("x", "12x")), std::nullopt);
  EXPECT_EQ(startTimeInStat(stat("x", "18446744073709551616")), std::nullopt);
}

TEST(Status, TheEffectiveUserIsTheSecondNumber) {
  EXPECT_EQ(effectiveUserInStatus("Name:\tx\nUid:\t1000\t1001\t1002\t1003\nGid:\t1\t2\t3\t4\n"),
            1001U);
  EXPECT_EQ(effectiveUserInStatus("Uid:\t0\t0\t0\t0\n"), 0U);
}

TEST(Status, ANameIsNoUser) {
  EXPECT_EQ(effectiveUserInStatus("Name:\tUid:\t7\t7\t7\t7\nUid:\t1\t2\t3\t4\n"), 2U);
  EXPECT_EQ(effectiveUserInStatus("Name:\tUid:\t7\t7\t7\t7\n"), std::nullopt);
}

TEST(Status, WhatTheKernelDoesNotWriteHasNoUser) {
  EXPECT_EQ(effectiveUserInStatus(""), std::nullopt);
  EXPECT_EQ(effectiveUserInStatus("Uid:\t1000\n"), std::nullopt);
  EXPECT_EQ(effectiveUserInStatus("Uid:\t1000\tx\t1\t1\n"), std::nullopt);
  EXPECT_EQ(effectiveUserInStatus("Uid: 1 2 3 4\n"), std::nullopt);
  EXPECT_EQ(effectiveUserInStatus("Uid:\t1\t4294967296\t1\t1\n"), std::nullopt);
}

TEST(CommandLine, StartsWithTheFirstArgument) {
  EXPECT_EQ(firstArgument(std::string_view("/usr/bin/app\0--flag\0", 20)), "/usr/bin/app");
  EXPECT_EQ(firstArgument("renamed"), "renamed");
  EXPECT_EQ(firstArgument(""), "");
}

TEST(ReadStart, ReadsAtMostSoMuchAndFollowsNoLink) {
  const testsupport::TemporaryDirectory directory;
  testsupport::writeFile(directory.path() / "file", std::string(10000, 'x'));
  std::filesystem::create_symlink(directory.path() / "file", directory.path() / "link");
  const int opened = ::open(directory.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  EXPECT_EQ(readStart(opened, "file", 5000).size(), 5000U);
  EXPECT_EQ(readStart(opened, "file", 50000).size(), 10000U);
  EXPECT_EQ(readStart(opened, "missing", 5000), "");
  EXPECT_EQ(readStart(opened, "link", 5000), "");
  EXPECT_EQ(readStart(opened, ".", 5000), "");
  ::close(opened);
}

}  // namespace
