// SPDX-License-Identifier: Apache-2.0

// A build with WLHID_LOG_INPUT: the log on standard error shows what devices send.
#include <gtest/gtest.h>

#include "platform/foundation/NSData.h"
#include "platform/kit/KQLogger.h"

namespace platform {
namespace {

TEST(LogInput, IsWrittenWholeWhereTheBuildAsksForIt) {
  const std::uint8_t bytes[] = {0x1c};
  KQLogger::sharedLogger().setSink(nullptr);
  testing::internal::CaptureStderr();
  KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
      0, "f", "p", 1, nullptr, "Received for reportID %u: %@", 3U, NSData::dataWithBytes(bytes));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "<0> f:1 Received for reportID 3: {length = 1, bytes = 0x1c}\n");
}

}  // namespace
}  // namespace platform
