#include "tool/Diagnosis.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

/// What is said of a root's disk in this state; of all else nothing is asked here.
Check diskCheckOf(const DiskState& disk) {
  const testsupport::TemporaryDirectory directory;
  Inventory inventory = takeInventory(platform::SystemRoot(directory.path() / "root"));
  inventory.disk = disk;
  const Diagnosis diagnosis = diagnose(inventory);
  const auto found = std::ranges::find(diagnosis.checks, "disk", &Check::name);
  return found == diagnosis.checks.end() ? Check{} : *found;
}

TEST(Diagnosis, ADiskWithRoomPasses) {
  const Check check = diskCheckOf({std::uint64_t{5} << 20, 100, {}});
  EXPECT_EQ(check.state, Check::State::Passed);
  EXPECT_EQ(check.found, "5 MiB free");
}

TEST(Diagnosis, ADiskWithoutBytesOrWithoutFilesIsFull) {
  for (const DiskState& disk : {DiskState{(std::uint64_t{1} << 20) - 1, 100, {}},
                                DiskState{std::uint64_t{5} << 20, 15, {}}}) {
    const Check check = diskCheckOf(disk);
    EXPECT_EQ(check.state, Check::State::Failed);
    EXPECT_TRUE(check.found.starts_with("full: ")) << check.found;
    EXPECT_FALSE(check.remedy.empty());
  }
}

TEST(Diagnosis, ADiskThatCannotBeAskedFailsForThatReason) {
  const Check check = diskCheckOf({0, 0, "/root: Input/output error"});
  EXPECT_EQ(check.state, Check::State::Failed);
  EXPECT_EQ(check.found, "/root: Input/output error");
}

}  // namespace
}  // namespace tool
