// SPDX-License-Identifier: Apache-2.0

// What each end reports when one of them closes; every test runs with the roles both ways.
#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

enum class Closer { Client, Service };

/// closing() is the end that acts, other() the one that is told.
class Closing : public XPCTest, public ::testing::WithParamInterface<Closer> {
 protected:
  void SetUp() override {
    serviceEnd_ = connect();
    ASSERT_TRUE(serviceEnd_);
    // Each end has delivered something before either ends.
    serviceEnd_->proxy()->note(0);
    ASSERT_TRUE(client_.log.waitFor("note 0"));
  }
  void TearDown() override {
    serviceEnd_->talker->takeHeld();
    serviceEnd_->connection.reset();
  }
  [[nodiscard]] bool clientCloses() const { return GetParam() == Closer::Client; }
  End& closing() { return clientCloses() ? client_ : *serviceEnd_; }
  End& other() { return clientCloses() ? *serviceEnd_ : client_; }
  void bothAsk() {
    closing().ask();
    other().ask();
    ASSERT_TRUE(closing().log.waitFor("asked"));
    ASSERT_TRUE(other().log.waitFor("asked"));
  }

  std::shared_ptr<End> serviceEnd_;
};

std::string nameOf(const ::testing::TestParamInfo<Closer>& info) {
  return info.param == Closer::Client ? "clientCloses" : "serviceCloses";
}

INSTANTIATE_TEST_SUITE_P(Ends, Closing, ::testing::Values(Closer::Client, Closer::Service), nameOf);

}  // namespace

TEST_P(Closing, InvalidateIsAnInvalidationAtBothEnds) {
  bothAsk();
  closing().connection->invalidate();
  ASSERT_TRUE(closing().log.waitFor("invalidation"));
  ASSERT_TRUE(other().log.waitFor("invalidation"));
  const Lines expected{"note 0", "asked", "error 4099", "invalidation"};
  EXPECT_EQ(closing().log.lines(), expected);
  EXPECT_EQ(other().log.lines(), expected);
}

TEST_P(Closing, InvalidateAtBothEndsIsReportedOnceAtEach) {
  std::thread second([this] { other().connection->invalidate(); });
  closing().connection->invalidate();
  second.join();
  ASSERT_TRUE(closing().log.waitFor("invalidation"));
  ASSERT_TRUE(other().log.waitFor("invalidation"));
  EXPECT_EQ(closing().log.lines(), Lines({"note 0", "invalidation"}));
  EXPECT_EQ(other().log.lines(), Lines({"note 0", "invalidation"}));
}

TEST_P(Closing, DroppingTheConnectionIsQuietHereAndAnEndWithoutFarewellThere) {
  bothAsk();
  closing().connection.reset();
  // A client may connect again; an accepted connection cannot.
  const bool interrupts = !clientCloses();
  ASSERT_TRUE(other().log.waitFor(interrupts ? "interruption" : "invalidation"));
  EXPECT_EQ(other().log.lines(), interrupts
                                     ? Lines({"note 0", "asked", "error 4097", "interruption"})
                                     : Lines({"note 0", "asked", "error 4099", "invalidation"}));
  ASSERT_TRUE(closing().log.waitFor("error 4099"));
  EXPECT_EQ(closing().log.lines(), Lines({"note 0", "asked", "error 4099"}));
}

TEST_P(Closing, WhatWasSentBeforeTheFarewellIsDeliveredFirst) {
  const auto proxy = closing().proxy();
  for (std::uint64_t i = 1; i <= 1000; ++i) proxy->note(i);
  closing().connection->invalidate();
  ASSERT_TRUE(other().log.waitFor("invalidation"));
  const Lines lines = other().log.lines();
  ASSERT_EQ(lines.size(), 1002U);
  EXPECT_EQ(lines[1000], "note 1000");
  EXPECT_EQ(lines[1001], "invalidation");
}

TEST_P(Closing, AReplyAndTheEndExcludeEachOther) {
  // Exactly one of reply and error handler, whichever comes first.
  for (int i = 0; i < 200; ++i) other().ask();
  ASSERT_TRUE(closing().log.waitFor("asked", 200));
  std::thread answers([this] {
    for (const auto& reply : closing().talker->takeHeld()) reply(nullptr);
  });
  closing().connection->invalidate();
  answers.join();
  ASSERT_TRUE(other().log.waitFor("invalidation"));
  EXPECT_EQ(other().log.count("reply nil") + other().log.count("error 4099"), 200U);
  EXPECT_EQ(other().log.lines().back(), "invalidation");
}

TEST_P(Closing, SendingAfterTheEndIsAnErrorAtBothEnds) {
  closing().connection->invalidate();
  ASSERT_TRUE(closing().log.waitFor("invalidation"));
  ASSERT_TRUE(other().log.waitFor("invalidation"));
  closing().proxy()->note(1);
  other().ask();
  EXPECT_TRUE(closing().log.waitFor("error 4099"));
  EXPECT_TRUE(other().log.waitFor("error 4099"));
}

TEST_P(Closing, TheHandlersOfTheInvalidatedEndAreNotCalledAgainWhenThePeerGoesToo) {
  closing().connection->invalidate();
  ASSERT_TRUE(closing().log.waitFor("invalidation"));
  ASSERT_TRUE(other().log.waitFor("invalidation"));
  other().connection->invalidate();
  other().connection.reset();
  closing().connection.reset();
  ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  EXPECT_EQ(closing().log.count("invalidation"), 1U);
  EXPECT_EQ(other().log.count("invalidation"), 1U);
}
