// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/DeviceNames.h"

#include <gtest/gtest.h>

#include "tool/command/Command.h"

namespace tool {
namespace {

TEST(DeviceReference, IsANameAndWhereItIsANumberAnIDToo) {
  EXPECT_EQ(DeviceReference::parse("Mouse").name, "Mouse");
  EXPECT_EQ(DeviceReference::parse("Mouse").registryEntryID, std::nullopt);
  EXPECT_EQ(DeviceReference::parse("12").name, "12");
  EXPECT_EQ(DeviceReference::parse("12").registryEntryID, 12U);
  EXPECT_EQ(DeviceReference::parse("0x1f").registryEntryID, 0x1fU);
}

TEST(DeviceReference, APrefixSaysWhichOfBoth) {
  EXPECT_EQ(DeviceReference::parse("id:0x12").name, std::nullopt);
  EXPECT_EQ(DeviceReference::parse("id:0x12").registryEntryID, 0x12U);
  EXPECT_EQ(DeviceReference::parse("name:12").name, "12");
  EXPECT_EQ(DeviceReference::parse("name:12").registryEntryID, std::nullopt);
  EXPECT_EQ(DeviceReference::parse("name:id:12").name, "id:12");
  EXPECT_EQ(DeviceReference::parse("name:name:x").name, "name:x");
  EXPECT_THROW(DeviceReference::parse("id:mouse"), UsageFailure);
  EXPECT_THROW(DeviceReference::parse("id:"), UsageFailure);
}

}  // namespace
}  // namespace tool
