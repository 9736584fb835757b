// SPDX-License-Identifier: Apache-2.0

// A peer that reads slowly or not at all affects only its own connection, and what is lost is
// counted.
#include <cerrno>
#include <future>

#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

/// The service's end of the first connection blocks in its first note until the gate opens.
class SlowPeer : public XPCTest {
 protected:
  SlowPeer() {
    service_->prepare = [this](End& end) {
      if (std::exchange(first_, false)) {
        end.talker->onNote = [opened = opened_](std::uint64_t) { opened.wait(); };
      }
    };
  }
  ~SlowPeer() override { open(); }
  void open() {
    if (!std::exchange(isOpen_, true)) gate_.set_value();
  }
  std::shared_ptr<End> connectToSlow() {
    client_.connection->resume();
    client_.proxy()->note(0);
    auto end = service_->end();
    EXPECT_TRUE(end && end->log.waitFor("note 0"));
    return end;
  }
  static std::shared_ptr<NSData> block(std::size_t size) {
    return NSData::dataWithLength(size, [](std::span<std::uint8_t> bytes) {
      std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
    });
  }

  std::promise<void> gate_;
  std::shared_future<void> opened_ = gate_.get_future().share();
  bool first_ = true;
  bool isOpen_ = false;
};

}  // namespace

TEST_F(SlowPeer, DoesNotHoldUpAnother) {
  connectToSlow();
  const auto data = block(4096);
  const auto proxy = client_.proxy();
  for (std::uint32_t i = 0; i < 1000; ++i) proxy->data_tag(data, i);
  EXPECT_GT(client_.connection->unsentBytes(), 0U);
  End quick;
  quick.configure(makeConnection());
  quick.connection->resume();
  quick.proxy()->note(1);
  const auto end = service_->end(1);
  ASSERT_TRUE(end && end->log.waitFor("note 1"));
  quick.connection.reset();
}

TEST_F(SlowPeer, WhatWaitedArrivesInOrder) {
  const auto end = connectToSlow();
  const auto data = block(4096);
  const auto proxy = client_.proxy();
  for (std::uint32_t i = 0; i < 2000; ++i) proxy->data_tag(data, i);
  EXPECT_FALSE(client_.connection->waitUntilUnsentBelow(1, std::chrono::milliseconds(0)));
  open();
  EXPECT_TRUE(client_.connection->waitUntilUnsentBelow(1, kPatience));
  ASSERT_TRUE(end->log.waitForLines(2001));
  const Lines lines = end->log.lines();
  for (std::size_t i = 0; i < 2000; ++i) ASSERT_EQ(lines[i + 1], "data 4096 " + std::to_string(i));
  EXPECT_EQ(client_.connection->messagesDropped(), 0U);
}

TEST_F(SlowPeer, TheBacklogHasABoundAndWhatIsDroppedIsCountedAndReported) {
  const auto end = connectToSlow();
  const auto data = block(1 << 20);
  const auto proxy = client_.proxy();
  for (std::uint32_t i = 0; i < 40; ++i) proxy->data_tag(data, i);
  const std::uint64_t dropped = client_.connection->messagesDropped();
  EXPECT_GT(dropped, 0U);
  EXPECT_LT(dropped, 40U);
  EXPECT_LE(client_.connection->unsentBytes(), kXPCUnsentLimit);
  ASSERT_TRUE(client_.log.waitFor("error " + std::to_string(ENOBUFS), dropped));
  client_.proxy()->echo_reply(str(std::string(2 << 20, 'x')), [](const std::shared_ptr<NSString>&) {
    ADD_FAILURE() << "a request that was dropped was answered";
  });
  ASSERT_TRUE(client_.log.waitFor("error " + std::to_string(ENOBUFS), dropped + 1));
  EXPECT_EQ(client_.connection->messagesDropped(), dropped + 1);
  EXPECT_EQ(logged_.linesWith("messages are being dropped"), 1U);
  open();
  ASSERT_TRUE(client_.connection->waitUntilUnsentBelow(1, kPatience));
  ASSERT_TRUE(end->log.waitForLines(1 + 40 - dropped));
  client_.proxy()->note(9);
  EXPECT_TRUE(end->log.waitFor("note 9"));
}

TEST_F(SlowPeer, TheBacklogTakesItsLimitToTheByte) {
  constexpr std::size_t kAroundTheBlock = 18;  // header, tag, long size, the second argument
  const auto frameOf = [&](std::size_t size) { return block(size - kAroundTheBlock); };
  const std::size_t half = kXPCUnsentLimit / 2;
  const std::size_t quarter = kXPCUnsentLimit / 4;
  for (const std::size_t last : {quarter - 1, quarter, quarter + 1}) {
    End end;
    end.configure(makeConnection());  // not resumed, so nothing is sent
    const auto proxy = end.proxy();
    proxy->data_tag(frameOf(half), 0);
    proxy->data_tag(frameOf(quarter), 0);
    ASSERT_EQ(end.connection->unsentBytes(), half + quarter);
    proxy->data_tag(frameOf(last), 0);
    const bool fits = last <= quarter;
    EXPECT_EQ(end.connection->messagesDropped(), fits ? 0U : 1U) << last;
    EXPECT_EQ(end.connection->unsentBytes(), half + quarter + (fits ? last : 0)) << last;
    end.connection.reset();
    ASSERT_TRUE(waitUntilNoConnectionIsLeft());  // its error handlers write to the end's log
  }
}

TEST_F(SlowPeer, WhatOfABatchDoesNotFitIsDroppedMessageByMessage) {
  End end;
  end.configure(makeConnection());  // not resumed, so nothing is sent
  const auto [batch, proxy] = end.batch();
  const std::size_t half = kXPCUnsentLimit / 2;
  const auto data = block(half - 100);
  proxy->data_tag(data, 0);
  proxy->data_tag(data, 1);
  proxy->data_tag(data, 2);  // one too many
  proxy->note(3);
  batch->send();
  EXPECT_EQ(end.connection->messagesDropped(), 1U);
  EXPECT_GT(end.connection->unsentBytes(), 2 * half - 200);
  EXPECT_LE(end.connection->unsentBytes(), kXPCUnsentLimit);
  EXPECT_EQ(logged_.linesWith("messages are being dropped"), 1U);
  end.connection->resume();
  const auto service = service_->end();
  ASSERT_TRUE(service && service->log.waitFor("note 3"));
  const std::string size = std::to_string(half - 100);
  EXPECT_EQ(service->log.lines(), Lines({"data " + size + " 0", "data " + size + " 1", "note 3"}));
  ASSERT_TRUE(end.log.waitFor("error " + std::to_string(ENOBUFS)));
  end.connection.reset();
}

TEST_F(SlowPeer, ABatchLargerThanTheSocketTakesArrivesInOrder) {
  const auto end = connectToSlow();
  const auto data = block(5000);  // so that the socket is full in the middle of a message
  const auto proxy = client_.proxy();
  std::uint32_t sent = 0;
  const auto sendBatch = [&](std::uint32_t count) {
    const auto [batch, batched] = client_.batch();
    for (const std::uint32_t last = sent + count; sent < last; ++sent)
      batched->data_tag(data, sent);
    batch->send();
  };
  sendBatch(500);  // the first meets an empty socket
  EXPECT_GT(client_.connection->unsentBytes(), 0U);
  sendBatch(500);  // the next ones a full one
  sendBatch(1);
  proxy->data_tag(data, sent++);
  open();
  ASSERT_TRUE(end->log.waitForLines(1 + sent));
  const Lines lines = end->log.lines();
  for (std::uint32_t i = 0; i < sent; ++i)
    ASSERT_EQ(lines[i + 1], "data 5000 " + std::to_string(i));
  EXPECT_EQ(client_.connection->messagesDropped(), 0U);
}

TEST_F(SlowPeer, WaitingOnTheQueueItselfFlushesThere) {
  const auto end = connectToSlow();
  const auto data = block(4096);
  std::promise<bool> waited;
  client_.talker->onNote = [&](std::uint64_t) {
    const auto proxy = client_.proxy();
    for (std::uint32_t i = 0; i < 1000; ++i) proxy->data_tag(data, i);
    open();
    waited.set_value(client_.connection->waitUntilUnsentBelow(1, kPatience));
  };
  end->proxy()->note(1);
  EXPECT_TRUE(waited.get_future().get());
  EXPECT_TRUE(end->log.waitFor("data 4096 999"));
}

TEST_F(SlowPeer, AWaitEndsWithTheConnection) {
  const auto end = connectToSlow();
  const auto proxy = client_.proxy();
  const auto data = block(4096);
  for (std::uint32_t i = 0; i < 1000; ++i) proxy->data_tag(data, i);
  std::thread waiter(
      [this] { EXPECT_TRUE(client_.connection->waitUntilUnsentBelow(1, kPatience)); });
  end->connection.reset();
  open();
  waiter.join();
}

TEST_F(SlowPeer, OneWayMessagesThatNeverLeftFailWhenTheStreamEnds) {
  const auto end = connectToSlow();
  const auto proxy = client_.proxy();
  const auto data = block(4096);
  for (std::uint32_t i = 0; i < 1000; ++i) proxy->data_tag(data, i);
  end->connection->invalidate();
  open();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_GT(client_.log.count("error 4099"), 0U);
  EXPECT_EQ(client_.log.count("error 4099"), client_.connection->messagesDropped());
  EXPECT_EQ(client_.log.lines().back(), "invalidation");
}
