// SPDX-License-Identifier: Apache-2.0

// Which step of the presence check says no.
#include "tool/findings/PresenceCheck.h"

#include <gtest/gtest.h>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace tool {
namespace {

RouterCopy copy(const std::string& path, const std::string& version) {
  return {path, version, CopyState::Complete, {}, platform::str(version)};
}

RouterCopy broken(const std::string& path, CopyState state) {
  return {path, {}, state, "why", nullptr};
}

RouterVersions versions(RouterCopy bundle, std::optional<RouterCopy> installed) {
  return {std::move(bundle), std::move(installed), {}, {}};
}

/// "yes" for each step up to the first that says no, and what that one found.
std::string outcome(const RouterVersions& read) {
  std::string text;
  bool stopped = false;
  for (const PresenceStep& step : presenceSteps(read)) {
    if (stopped) {
      EXPECT_EQ(step.answer, Answer::NotAsked) << step.name;
      EXPECT_EQ(step.found, "") << step.name;
    } else if (step.answer == Answer::No) {
      stopped = true;
      text = std::string(step.name) + ": " + step.found;
    } else {
      EXPECT_EQ(step.answer, Answer::Yes) << step.name;
    }
  }
  return stopped ? text : "yes";
}

const RouterCopy kOwn = copy("/own", "1.0");

TEST(PresenceSteps, SayYesWhereVersionsAreEqual) {
  EXPECT_EQ(outcome(versions(kOwn, copy("/installed", "1.0"))), "yes");
}

TEST(PresenceSteps, SayWhyThereIsNoJob) {
  RouterVersions read = versions(broken("/own", CopyState::Unreadable), std::nullopt);
  read.jobProblem = "there is no job file";
  EXPECT_EQ(outcome(read), "job: there is no job file");
}

TEST(PresenceSteps, LookAtTheOwnCopyFirst) {
  const auto nothing = broken("/installed", CopyState::Unreadable);
  EXPECT_EQ(outcome(versions(broken("/own", CopyState::Unreadable), nothing)), "ownCopy: why");
  EXPECT_EQ(outcome(versions(broken("/own", CopyState::NoEmbeddedList), nothing)),
            "ownCopyList: why");
  EXPECT_EQ(outcome(versions(broken("/own", CopyState::BadList), nothing)), "installedCopy: why");
  EXPECT_EQ(outcome(versions(broken("/own", CopyState::BadList), kOwn)),
            "ownCopyListReadable: why");
  EXPECT_EQ(outcome(versions(broken("/own", CopyState::NoVersion), kOwn)), "ownVersion: why");
}

TEST(PresenceSteps, TellEachFailureOfTheInstalledCopy) {
  const auto with = [](CopyState state) {
    return outcome(versions(kOwn, broken(state == CopyState::NoPath ? "" : "/installed", state)));
  };
  EXPECT_EQ(with(CopyState::NoPath), "executablePath: why");
  EXPECT_EQ(with(CopyState::Unreadable), "installedCopy: why");
  EXPECT_EQ(with(CopyState::NoEmbeddedList), "installedCopyList: why");
  EXPECT_EQ(with(CopyState::BadList), "installedCopyListReadable: why");
  EXPECT_EQ(with(CopyState::NoVersion), "installedVersion: why");
}

TEST(PresenceSteps, TellVersionsApartAsObjects) {
  EXPECT_EQ(outcome(versions(kOwn, copy("/installed", "1.0.0"))),
            "versionsEqual: version 1.0.0 is installed, this program carries 1.0");
  RouterCopy number = copy("/installed", "7");
  number.versionValue = platform::NSNumber::numberWithUnsignedLongLong(7);
  EXPECT_EQ(outcome(versions(copy("/own", "7"), number)),
            "versionsEqual: version 7 is installed, this program carries 7, as values of different "
            "types");
}

}  // namespace
}  // namespace tool
