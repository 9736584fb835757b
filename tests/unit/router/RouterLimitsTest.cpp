// SPDX-License-Identifier: Apache-2.0

// The default limits. Each is a promise: to honest clients, that they are not refused, and to the
// machine, that no client takes more.
#include "router/RouterLimits.h"

#include <gtest/gtest.h>

namespace {

using router::RouterLimits;
using std::chrono::milliseconds;
using std::chrono::seconds;

void expectRate(const router::Rate& rate, double burst, double perSecond) {
  EXPECT_EQ(rate.burst, burst);
  EXPECT_EQ(rate.perSecond, perSecond);
}

TEST(RouterLimits, OfConnectionsRequestsAndLogLines) {
  const RouterLimits limits;
  EXPECT_EQ(limits.sessions, 256U);
  EXPECT_EQ(limits.sessionsPerUser, 128U);
  expectRate(limits.startsPerUser, 1000, 500);
  expectRate(limits.starts, 2000, 1000);
  EXPECT_EQ(limits.startTimeout, seconds(1));
  EXPECT_EQ(limits.handoverGrace, milliseconds(250));
  EXPECT_EQ(limits.endedRoutingLifetime, std::chrono::minutes(10));
  expectRate(limits.logLinesPerSession, 32, 1);
  expectRate(limits.logLinesPerUser, 512, 16);
}

TEST(RouterLimits, OfTheControlService) {
  const RouterLimits limits;
  EXPECT_EQ(limits.controlConnections, 64U);
  EXPECT_EQ(limits.controlConnectionsPerUser, 16U);
  expectRate(limits.controlRequestsPerUser, 20, 2);
  expectRate(limits.controlRequests, 100, 20);
  EXPECT_EQ(limits.controlTimeout, seconds(6));
}

TEST(RouterLimits, OfTheDeviceDirectory) {
  const RouterLimits limits;
  EXPECT_EQ(limits.directoryConnections, 64U);
  EXPECT_EQ(limits.directoryConnectionsPerUser, 16U);
  expectRate(limits.directoryRequestsPerUser, 20, 2);
  expectRate(limits.directoryRequests, 100, 20);
  EXPECT_EQ(limits.directoryCriteria, 64U);
  EXPECT_EQ(limits.directoryBacklog, 262'144U);
  EXPECT_EQ(limits.directoryInterval, milliseconds(20));
  EXPECT_EQ(limits.udevTime, seconds(1));
  EXPECT_EQ(limits.directorySettling, milliseconds(1100));
  EXPECT_EQ(limits.directoryPoll, seconds(2));
}

TEST(RouterLimits, OfWhatLiesInMemory) {
  constexpr std::size_t kMebibyte = 1'048'576;
  const RouterLimits limits;
  EXPECT_EQ(limits.backlogPerClient, 4 * kMebibyte);
  EXPECT_EQ(limits.backlogPerUser, 16 * kMebibyte);
  EXPECT_EQ(limits.backlog, 64 * kMebibyte);
  EXPECT_EQ(limits.backlogWaitedFor, kMebibyte);
  EXPECT_EQ(limits.stallTimeout, seconds(30));
  EXPECT_EQ(limits.usagesPerFilter, 65'536U);
  EXPECT_EQ(limits.devices, 1024U);
}

TEST(RouterLimits, OfFilesAndDescriptors) {
  const RouterLimits limits;
  EXPECT_EQ(limits.configurations, 1024U);
  EXPECT_EQ(limits.configurationBytes, 65'536U);
  EXPECT_EQ(limits.settling, milliseconds(50));
  EXPECT_EQ(RouterLimits::kRecordingBytes, 67'108'864U);
  EXPECT_EQ(RouterLimits::kRecordingLineBytes, 262'144U);
  EXPECT_EQ(RouterLimits::kNameCharacters, 128U);
  EXPECT_EQ(RouterLimits::kReadAheadReports, 2048U);
  EXPECT_EQ(RouterLimits::kReadAheadBytes, 131'072U);
  EXPECT_EQ(RouterLimits::kHidrawReportBytes, 16'384U);
  EXPECT_EQ(RouterLimits::kDescriptorBytes, 65'535U);
  EXPECT_EQ(RouterLimits::kCollectionDepth, 64U);
  EXPECT_EQ(RouterLimits::kListedCollections, 32U);
  EXPECT_EQ(RouterLimits::kGlobalStackDepth, 64U);
  EXPECT_EQ(RouterLimits::kElements, 65'536U);
  EXPECT_EQ(RouterLimits::kReportBytes, 65'536U);
  EXPECT_EQ(RouterLimits::kReportValues, 4096U);
  EXPECT_EQ(RouterLimits::kValues, 8192U);
}

}  // namespace
