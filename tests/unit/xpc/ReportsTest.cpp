#include <gtest/gtest.h>

#include <memory>

#include "platform/xpc/Pacing.h"
#include "platform/xpc/StaleReports.h"

using namespace platform::xpc;
using std::chrono::milliseconds;

TEST(Pacing, TheFirstReportIsPromptAndTheNextOnesWaitTwiceAsLongEach) {
  const std::string service = "pacing.doubling";
  EXPECT_EQ(pauseAfterEnd(service, milliseconds(1)), milliseconds(0));
  for (const int expected : {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1000, 1000, 1000}) {
    EXPECT_EQ(pauseAfterEnd(service, milliseconds(1)), milliseconds(expected));
  }
}

TEST(Pacing, AConnectionThatLastedStartsAfresh) {
  const std::string service = "pacing.afresh";
  EXPECT_EQ(pauseAfterEnd(service, milliseconds(999)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd(service, milliseconds(999)), milliseconds(1));
  EXPECT_EQ(pauseAfterEnd(service, milliseconds(1000)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd(service, milliseconds(999)), milliseconds(0));
}

TEST(Pacing, ServicesAreCountedApart) {
  EXPECT_EQ(pauseAfterEnd("pacing.one", milliseconds(1)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd("pacing.two", milliseconds(1)), milliseconds(0));
}

TEST(Pacing, HugeAttemptNumbersDoNotOverflow) {
  EXPECT_EQ(pauseBeforeAttempt(0), milliseconds(0));
  EXPECT_EQ(pauseBeforeAttempt(~0U), milliseconds(1000));
}

TEST(StaleReports, ANewerConnectionOfTheSameObjectSupersedes) {
  const auto object = std::make_shared<int>(1);
  const auto other = std::make_shared<int>(1);
  ResumedConnection first;
  ResumedConnection foreign;
  first.enter(object);
  foreign.enter(other);
  EXPECT_FALSE(first.isSuperseded());
  {
    ResumedConnection second;
    second.enter(object);
    EXPECT_TRUE(first.isSuperseded());
    EXPECT_FALSE(second.isSuperseded());
    EXPECT_FALSE(foreign.isSuperseded());
  }
  EXPECT_FALSE(first.isSuperseded());
}

TEST(StaleReports, IdentityIsTheObjectNotThePointer) {
  const auto object = std::make_shared<std::pair<int, int>>();
  const std::shared_ptr<int> part(object, &object->second);
  ResumedConnection first;
  ResumedConnection second;
  first.enter(object);
  second.enter(part);
  EXPECT_TRUE(first.isSuperseded());
}

TEST(StaleReports, WithoutAnObjectNothingIsSuperseded) {
  ResumedConnection first;
  ResumedConnection second;
  first.enter({});
  second.enter({});
  EXPECT_FALSE(first.isSuperseded());
}

TEST(StaleReports, TheEndOfTheObjectChangesNothing) {
  auto object = std::make_shared<int>(1);
  ResumedConnection first;
  ResumedConnection second;
  first.enter(object);
  second.enter(object);
  object.reset();
  EXPECT_TRUE(first.isSuperseded());
}
