// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/Outbox.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "platform/xpc/NSXPCConnection.h"

namespace {

using platform::kXPCUnsentLimit;
using platform::xpc::BatchedFrames;
using platform::xpc::FrameKind;
using platform::xpc::Outbox;
using platform::xpc::SharedErrorHandler;
using platform::xpc::WireWriter;
using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(const WireWriter& writer) {
  return {writer.bytes().begin(), writer.bytes().end()};
}

Bytes hello() {
  WireWriter writer;
  platform::xpc::writeHello(writer, {});
  return bytesOf(writer);
}

Bytes farewell() {
  WireWriter writer;
  writer.beginFrame(FrameKind::Farewell, 0);
  writer.finishFrame();
  return bytesOf(writer);
}

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

SharedErrorHandler anyHandler() {
  return std::make_shared<platform::XPCErrorHandler>([](const auto&) {});
}

/// An outbox and the other end of its stream.
class OutboxTest : public testing::Test {
 protected:
  OutboxTest() {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends_.data()),
              0);
  }
  ~OutboxTest() override {
    for (const int end : ends_) ::close(end);
  }

  void open() { outbox_.open(ends_[0], {}); }
  void put(const Bytes& frame) { outbox_.put(frame, true, nullptr); }
  void flush() { outbox_.flush(released_); }
  /// Everything that the other end can read now.
  Bytes arrived() {
    Bytes all;
    std::array<std::uint8_t, 65536> buffer{};
    for (ssize_t got = 0; (got = ::read(ends_[1], buffer.data(), buffer.size())) > 0;)
      all.insert(all.end(), buffer.data(), buffer.data() + got);
    return all;
  }
  /// Fills the socket so that it takes no further byte.
  void fillSocket() {
    const Bytes block(4096);
    while (::send(ends_[0], block.data(), block.size(), MSG_DONTWAIT) > 0) {
    }
  }

  std::array<int, 2> ends_{};
  Outbox outbox_;
  Outbox::Handlers released_;
};

TEST_F(OutboxTest, WhatIsSentBeforeTheStreamStandsFollowsTheHello) {
  put({1, 2});
  put({3});
  EXPECT_EQ(outbox_.size(), 3U);
  EXPECT_FALSE(outbox_.isOpen());
  open();
  EXPECT_EQ(arrived(), Bytes()) << "opening neither blocks nor writes";
  flush();
  EXPECT_EQ(arrived(), hello() + Bytes({1, 2, 3}));
  EXPECT_TRUE(outbox_.empty());
}

TEST_F(OutboxTest, WhatIsSentWhileNothingWaitsGoesOutAtOnce) {
  open();
  flush();
  arrived();
  put({1});
  EXPECT_EQ(arrived(), Bytes({1}));
  fillSocket();
  put({2});
  arrived();
  put({3});
  EXPECT_EQ(arrived(), Bytes()) << "after what waits";
  flush();
  EXPECT_EQ(arrived(), Bytes({2, 3}));
}

TEST_F(OutboxTest, EachStreamHasANumberAndAHelloOfItsOwn) {
  open();
  const auto first = outbox_.stream();
  flush();
  arrived();
  outbox_.close();
  EXPECT_FALSE(outbox_.isOpen());
  put({9});
  open();
  EXPECT_NE(outbox_.stream(), first);
  flush();
  EXPECT_EQ(arrived(), hello() + Bytes({9}));
}

TEST_F(OutboxTest, TheFarewellIsSaidOnceAfterAllThatWaits) {
  put({5});
  open();
  EXPECT_TRUE(outbox_.sayFarewell(released_));
  EXPECT_FALSE(outbox_.sayFarewell(released_));
  EXPECT_EQ(arrived(), hello() + Bytes({5}) + farewell());
}

TEST_F(OutboxTest, HandsOutTheHandlersOfWhatWasWritten) {
  const auto handler = anyHandler();
  outbox_.put(Bytes{1}, true, handler);
  open();
  flush();
  EXPECT_EQ(released_, Outbox::Handlers{handler});
}

TEST_F(OutboxTest, HasALimitThatWritingRaisesAgain) {
  EXPECT_EQ(kXPCUnsentLimit, 33'554'432U);
  EXPECT_TRUE(outbox_.fits(kXPCUnsentLimit));
  EXPECT_FALSE(outbox_.fits(kXPCUnsentLimit + 1));
  put(Bytes(1000));
  EXPECT_TRUE(outbox_.fits(kXPCUnsentLimit - 1000));
  EXPECT_FALSE(outbox_.fits(kXPCUnsentLimit - 999));
  open();
  flush();
  EXPECT_TRUE(outbox_.fits(kXPCUnsentLimit));
}

TEST(Budget, GetsBackWhatAConnectionKeptWhenItGoes) {
  const auto budget = std::make_shared<platform::xpc::UnsentBudget>(1000);
  {
    Outbox outbox;
    outbox.chargeTo(budget);
    outbox.put(Bytes(600), true, nullptr);
    EXPECT_EQ(budget->taken(), 600U);
    EXPECT_FALSE(outbox.fits(401));
    EXPECT_TRUE(outbox.fits(400));
  }
  EXPECT_EQ(budget->taken(), 0U);
}

TEST_F(OutboxTest, SaysOnceThatDroppingBegins) {
  put({1});
  EXPECT_TRUE(outbox_.drop());
  EXPECT_FALSE(outbox_.drop());
  open();
  flush();
  EXPECT_TRUE(outbox_.drop()) << "again once everything has been written";
  EXPECT_EQ(outbox_.dropped(), 3U);
}

TEST_F(OutboxTest, WhatIsGivenUpCountsAsDropped) {
  const auto handler = anyHandler();
  outbox_.put(Bytes{1}, true, handler);
  outbox_.put(Bytes{2}, false, nullptr);
  const auto lost = outbox_.takeAll();
  ASSERT_EQ(lost.size(), 2U);
  EXPECT_TRUE(lost[0].oneWay);
  EXPECT_EQ(lost[0].errorHandler, handler);
  EXPECT_FALSE(lost[1].oneWay);
  EXPECT_EQ(outbox_.dropped(), 2U);
  EXPECT_TRUE(outbox_.empty());
}

TEST_F(OutboxTest, APeerThatHasGoneBreaksIt) {
  open();
  ::shutdown(ends_[1], SHUT_RDWR);
  flush();
  EXPECT_TRUE(outbox_.isBroken());
  EXPECT_FALSE(outbox_.wantsToWrite());
  EXPECT_FALSE(outbox_.empty());
  outbox_.close();
  EXPECT_FALSE(outbox_.isBroken()) << "the next stream starts afresh";
}

TEST_F(OutboxTest, BrokenOffThePeerSeesTheEnd) {
  open();
  flush();
  outbox_.breakOff();
  put({1});
  EXPECT_EQ(arrived(), hello());
  std::uint8_t byte = 0;
  EXPECT_EQ(::read(ends_[1], &byte, 1), 0) << "the end of the stream";
}

/// Messages of the given sizes, each with a handler.
struct Batch : BatchedFrames {
  Batch(std::initializer_list<std::size_t> sizes) {
    for (const std::size_t size : sizes) {
      for (std::size_t i = 0; i < size; ++i) frames.u8(static_cast<std::uint8_t>(messages.size()));
      messages.push_back({frames.size(), anyHandler()});
    }
  }
};

TEST_F(OutboxTest, OfABatchEachMessageIsTakenOrRefused) {
  put(Bytes(kXPCUnsentLimit - 10));
  const Batch batch{4, 8, 5};
  Outbox::Handlers refused;
  EXPECT_TRUE(outbox_.put(batch, refused));
  EXPECT_EQ(refused, Outbox::Handlers{batch.messages[1].errorHandler});
  EXPECT_EQ(outbox_.size(), kXPCUnsentLimit - 1);
  EXPECT_EQ(outbox_.dropped(), 1U);
  EXPECT_FALSE(outbox_.put(Batch{8}, refused)) << "reported already";
}

TEST_F(OutboxTest, ABatchGoesOutAtOnceAndWhatIsLeftOfItWaits) {
  open();
  flush();
  arrived();
  Outbox::Handlers refused;
  const Batch small{2, 3};
  EXPECT_FALSE(outbox_.put(small, refused));
  EXPECT_EQ(arrived(), Bytes({0, 0, 1, 1, 1}));
  const Batch large{1'000'000, 1'000'000, 1'000'000};
  EXPECT_FALSE(outbox_.put(large, refused));
  EXPECT_FALSE(outbox_.empty());
  Bytes all;
  while (!outbox_.empty()) {
    all = std::move(all) + arrived();
    flush();
  }
  all = std::move(all) + arrived();
  EXPECT_TRUE(
      std::equal(all.begin(), all.end(), large.frames.bytes().begin(), large.frames.bytes().end()));
  EXPECT_TRUE(refused.empty());
}

}  // namespace
