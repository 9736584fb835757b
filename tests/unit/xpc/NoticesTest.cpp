// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <memory>
#include <new>

#include "platform/xpc/Guarded.h"
#include "platform/xpc/Pacing.h"
#include "platform/xpc/ResumedConnection.h"

using namespace platform::xpc;
using std::chrono::milliseconds;

TEST(Pacing, TheFirstNoticeIsPromptAndTheNextOnesWaitTwiceAsLongEach) {
  const auto client = std::make_shared<int>(0);
  EXPECT_EQ(pauseAfterEnd(client, "service", milliseconds(1)), milliseconds(0));
  for (const int expected : {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1000, 1000, 1000}) {
    EXPECT_EQ(pauseAfterEnd(client, "service", milliseconds(1)), milliseconds(expected));
  }
}

TEST(Pacing, AConnectionThatLastedStartsAfresh) {
  const auto client = std::make_shared<int>(0);
  EXPECT_EQ(pauseAfterEnd(client, "service", milliseconds(999)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd(client, "service", milliseconds(999)), milliseconds(1));
  EXPECT_EQ(pauseAfterEnd(client, "service", milliseconds(1000)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd(client, "service", milliseconds(999)), milliseconds(0));
}

TEST(Pacing, ServicesAreCountedApart) {
  const auto client = std::make_shared<int>(0);
  EXPECT_EQ(pauseAfterEnd(client, "one", milliseconds(1)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd(client, "two", milliseconds(1)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd(client, "one", milliseconds(1)), milliseconds(1));
}

TEST(Pacing, ClientsOfAServiceAreCountedApart) {
  const auto crashing = std::make_shared<int>(0);
  const auto other = std::make_shared<int>(0);
  for (int i = 0; i < 20; ++i)
    static_cast<void>(pauseAfterEnd(crashing, "service", milliseconds(1)));
  EXPECT_EQ(pauseAfterEnd(other, "service", milliseconds(1)), milliseconds(0));
  EXPECT_EQ(pauseAfterEnd(crashing, "service", milliseconds(1)), milliseconds(1000));
}

TEST(Pacing, EveryCountCanBeStartedAfresh) {
  const auto client = std::make_shared<int>(0);
  static_cast<void>(pauseAfterEnd(client, "service", milliseconds(1)));
  forgetShortLives();
  EXPECT_EQ(pauseAfterEnd(client, "service", milliseconds(1)), milliseconds(0));
}

TEST(SpareErrors, ForEachCodeAnErrorIsKeptInReserve) {
  for (const auto code : {platform::NSXPCConnectionInterrupted, platform::NSXPCConnectionInvalid,
                          platform::NSXPCConnectionReplyInvalid})
    EXPECT_EQ(spareError(code)->code(), code);
}

TEST(Pacing, AClientThatIsGoneIsForgotten) {
  auto client = std::make_shared<int>(0);
  const std::weak_ptr<int> weak = client;
  static_cast<void>(pauseAfterEnd(client, "service", milliseconds(1)));
  client.reset();
  static_cast<void>(pauseAfterEnd(std::make_shared<int>(0), "service", milliseconds(1)));
  EXPECT_EQ(weak.use_count(), 0);
}

TEST(Pacing, HugeAttemptNumbersDoNotOverflow) {
  EXPECT_EQ(pauseBeforeAttempt(0), milliseconds(0));
  EXPECT_EQ(pauseBeforeAttempt(~0U), milliseconds(1000));
}

TEST(Patience, EndsWhereMemoryStaysShort) {
  const unsigned before = attemptsWhileShort.exchange(4);
  unsigned asked = 0;
  EXPECT_FALSE(retryWhileShort([&] {
    ++asked;
    throw std::bad_alloc();
  }));
  EXPECT_EQ(asked, 4U);
  attemptsWhileShort = before;
}

TEST(Patience, LastsWhileAShortagePasses) {
  unsigned asked = 0;
  EXPECT_TRUE(retryWhileShort([&] {
    if (++asked < 3) throw std::bad_alloc();
  }));
  EXPECT_EQ(asked, 3U);
}

TEST(ResumedConnection, AConnectionThatIsMadeAfterAnInvalidationSupersedes) {
  const auto object = std::make_shared<int>(1);
  const auto other = std::make_shared<int>(1);
  ResumedConnection first;
  ResumedConnection foreign;
  first.enter(object);
  foreign.enter(other);
  first.close(object);
  foreign.close(other);
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

TEST(ResumedConnection, ConnectionsThatLiveSideBySideDoNotSupersedeEachOther) {
  const auto object = std::make_shared<int>(1);
  ResumedConnection older;
  ResumedConnection newer;
  older.enter(object);
  newer.enter(object);
  EXPECT_FALSE(older.isSuperseded());
  older.close(object);
  EXPECT_FALSE(older.isSuperseded());
  newer.close(object);
  EXPECT_FALSE(newer.isSuperseded());
}

TEST(ResumedConnection, AConnectionThatWasNeverResumedCanBeSuperseded) {
  const auto object = std::make_shared<int>(1);
  ResumedConnection first;
  ResumedConnection second;
  first.close(object);
  EXPECT_FALSE(first.isSuperseded());
  second.enter(object);
  EXPECT_TRUE(first.isSuperseded());
}

TEST(ResumedConnection, IdentityIsTheObjectNotThePointer) {
  const auto object = std::make_shared<std::pair<int, int>>();
  const std::shared_ptr<int> part(object, &object->second);
  ResumedConnection first;
  ResumedConnection second;
  first.enter(object);
  first.close(object);
  second.enter(part);
  EXPECT_TRUE(first.isSuperseded());
}

TEST(ResumedConnection, WithoutAnObjectNothingIsSuperseded) {
  ResumedConnection first;
  ResumedConnection second;
  first.enter({});
  first.close({});
  second.enter({});
  EXPECT_FALSE(first.isSuperseded());
}

TEST(ResumedConnection, TheEndOfTheObjectChangesNothing) {
  auto object = std::make_shared<int>(1);
  ResumedConnection first;
  ResumedConnection second;
  first.enter(object);
  first.close(object);
  second.enter(object);
  object.reset();
  EXPECT_TRUE(first.isSuperseded());
}
