// SPDX-License-Identifier: Apache-2.0

#include "jobd/Permission.h"

#include <gtest/gtest.h>

namespace {

using jobd::Permission;
using Operation = platform::ControlRequest::Operation;

bool uses(Permission& permission, Operation operation, const std::string& label = "com.x") {
  return permission.use({operation, label, true});
}

TEST(Permission, CoversARemovalThenABlessEachOnce) {
  Permission permission("com.x");
  EXPECT_TRUE(uses(permission, Operation::Remove));
  EXPECT_FALSE(uses(permission, Operation::Remove));
  EXPECT_FALSE(permission.isUsedUp());
  EXPECT_TRUE(uses(permission, Operation::Bless));
  EXPECT_TRUE(permission.isUsedUp());
  EXPECT_FALSE(uses(permission, Operation::Bless));
}

TEST(Permission, CoversNoRemovalAfterTheBless) {
  Permission permission("com.x");
  EXPECT_TRUE(uses(permission, Operation::Bless));
  EXPECT_FALSE(uses(permission, Operation::Remove));
}

TEST(Permission, ToRemoveCoversOneRemoval) {
  Permission permission("com.x", platform::ChangePurpose::Remove);
  EXPECT_FALSE(uses(permission, Operation::Bless));
  EXPECT_FALSE(permission.isUsedUp());
  EXPECT_TRUE(uses(permission, Operation::Remove));
  EXPECT_TRUE(permission.isUsedUp());
  EXPECT_FALSE(uses(permission, Operation::Remove));
}

TEST(Permission, CoversNothingElse) {
  Permission permission("com.x");
  EXPECT_FALSE(uses(permission, Operation::Status));
  EXPECT_FALSE(uses(permission, Operation::Authorize));
  EXPECT_FALSE(uses(permission, Operation::Bless, "com.y"));
  EXPECT_FALSE(uses(permission, Operation::Remove, "com.y"));
  EXPECT_FALSE(permission.isUsedUp());
  EXPECT_TRUE(uses(permission, Operation::Remove));
}

}  // namespace
