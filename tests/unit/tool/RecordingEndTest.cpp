#include "tool/RecordingEnd.h"

#include <gtest/gtest.h>

#include "tool/Command.h"

namespace tool {
namespace {

// Report ID 1: one byte X. Report ID 2: one constant byte, so it yields no values.
router::Recording recordingOf(const std::string& reports) {
  const std::string head =
      "R: 25 05 01 09 02 a1 01 85 01 09 30 15 81 25 7f 75 08 95 01 81 02 85 02 81 01 c0\n"
      "N: Two reports\nI: 3 0001 0002\n";
  return router::Recording::parse(head + reports, "two.hid");
}

TEST(LastDelivery, IsTheElementValuesOfTheLastReport) {
  const auto last =
      lastDeliveryOf(recordingOf("E: 0.000000 2 02 00\nE: 0.000000 2 01 05\n"), {}, "two.hid");
  EXPECT_EQ(last.reports, 2U);
  EXPECT_EQ(last.valuesFollow, true);
}

TEST(LastDelivery, IsTheReportItselfWhereItYieldsNoValues) {
  const auto last =
      lastDeliveryOf(recordingOf("E: 0.000000 2 01 05\nE: 0.000000 2 02 00\n"), {}, "two.hid");
  EXPECT_EQ(last.reports, 2U);
  EXPECT_EQ(last.valuesFollow, false);
}

TEST(LastDelivery, FollowsTheTagsThatWereAskedFor) {
  const auto recording = recordingOf("E: 0.000000 2 01 05\n");
  EXPECT_EQ(lastDeliveryOf(recording, {0x10030}, "two.hid").valuesFollow, true);
  EXPECT_EQ(lastDeliveryOf(recording, {0x10031}, "two.hid").valuesFollow, false);
}

TEST(LastDelivery, ARecordingWithoutReportsIsAFailure) {
  EXPECT_THROW(static_cast<void>(lastDeliveryOf(recordingOf(""), {}, "two.hid")), Failure);
}

TEST(LastDelivery, ADescriptorThatCannotBeParsedIsAFailureThatNamesTheFile) {
  const auto recording =
      router::Recording::parse("R: 2 a1 01\nI: 3 0001 0002\nE: 0.000000 1 05\n", "broken.hid");
  try {
    static_cast<void>(lastDeliveryOf(recording, {}, "broken.hid"));
    FAIL() << "no failure";
  } catch (const Failure& failure) {
    EXPECT_EQ(std::string(failure.what()).substr(0, 11), "broken.hid:") << failure.what();
  }
}

}  // namespace
}  // namespace tool
