#include "jobd/Leave.h"

#include <gtest/gtest.h>

namespace {

using jobd::Leave;
using Operation = platform::ControlRequest::Operation;

bool uses(Leave& leave, Operation operation, const std::string& label = "com.x") {
  return leave.use({operation, label, true});
}

TEST(Leave, CoversARemovalThenABlessEachOnce) {
  Leave leave("com.x");
  EXPECT_TRUE(uses(leave, Operation::Remove));
  EXPECT_FALSE(uses(leave, Operation::Remove));
  EXPECT_FALSE(leave.isUsedUp());
  EXPECT_TRUE(uses(leave, Operation::Bless));
  EXPECT_TRUE(leave.isUsedUp());
  EXPECT_FALSE(uses(leave, Operation::Bless));
}

TEST(Leave, CoversNoRemovalAfterTheBless) {
  Leave leave("com.x");
  EXPECT_TRUE(uses(leave, Operation::Bless));
  EXPECT_FALSE(uses(leave, Operation::Remove));
}

TEST(Leave, CoversNothingElse) {
  Leave leave("com.x");
  EXPECT_FALSE(uses(leave, Operation::Status));
  EXPECT_FALSE(uses(leave, Operation::Authorize));
  EXPECT_FALSE(uses(leave, Operation::Bless, "com.y"));
  EXPECT_FALSE(uses(leave, Operation::Remove, "com.y"));
  EXPECT_FALSE(leave.isUsedUp());
  EXPECT_TRUE(uses(leave, Operation::Remove));
}

}  // namespace
