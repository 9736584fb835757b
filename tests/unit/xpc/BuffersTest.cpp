// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>

#include "platform/xpc/ByteQueue.h"
#include "platform/xpc/ReceiveBuffer.h"
#include "platform/xpc/SendBacklog.h"

using platform::xpc::ByteQueue;
using platform::xpc::ReceiveBuffer;
using platform::xpc::SendBacklog;
using platform::xpc::SharedErrorHandler;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes counting(std::size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
  return bytes;
}

void fill(ReceiveBuffer& buffer, const Bytes& bytes, std::size_t frameSize) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const auto room = buffer.room(frameSize);
    const std::size_t count = std::min(room.size(), bytes.size() - done);
    std::memcpy(room.data(), bytes.data() + done, count);
    buffer.filled(count);
    done += count;
  }
}

Bytes unread(const ReceiveBuffer& buffer) {
  return {buffer.unread().begin(), buffer.unread().end()};
}

Bytes takeAll(ByteQueue& queue) {
  Bytes all;
  while (!queue.empty()) {
    all.insert(all.end(), queue.front().begin(), queue.front().end());
    queue.drop(queue.front().size());
  }
  return all;
}

}  // namespace

TEST(ByteQueue, AnswersAsOneBlockOfBytesDoes) {
  std::mt19937 random(20261121);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 200; ++round) {
    ByteQueue queue;
    Bytes model;
    for (int step = 0; step < 100; ++step) {
      const Bytes bytes = counting(below(3) == 0 ? below(200'000) : below(100));
      switch (below(8)) {
        case 0:
          queue.prepend(bytes);
          model.insert(model.begin(), bytes.begin(), bytes.end());
          break;
        case 1:
        case 2:
        case 3: {
          const std::size_t count = below(3) == 0 ? model.size() : below(model.size() + 1);
          queue.drop(count);
          model.erase(model.begin(), model.begin() + static_cast<std::ptrdiff_t>(count));
          break;
        }
        default:
          queue.append(bytes);
          model.insert(model.end(), bytes.begin(), bytes.end());
      }
      ASSERT_EQ(queue.size(), model.size());
      ASSERT_EQ(queue.empty(), queue.front().empty());
      ASSERT_TRUE(std::equal(queue.front().begin(), queue.front().end(), model.begin()));
    }
    ASSERT_EQ(takeAll(queue), model);
  }
}

TEST(ByteQueue, ItsMemoryFollowsWhatItHolds) {
  constexpr std::size_t limit = std::size_t{4} << 20;
  ByteQueue queue;
  const Bytes message = counting(700);
  for (int i = 0; i < 100'000; ++i) {
    queue.append(message);
    while (queue.size() > limit) queue.drop(701);
    ASSERT_LE(queue.capacity(), queue.size() + 2 * ByteQueue::kPieceLimit);
  }
  queue.drop(queue.size());
  EXPECT_LE(queue.capacity(), ByteQueue::kPieceLimit);
  queue.append(message);
  queue.clear();
  EXPECT_EQ(queue.capacity(), 0U);
  EXPECT_TRUE(queue.empty());
}

TEST(BufferLimits, OfAConnection) {
  EXPECT_EQ(ByteQueue::kPieceLimit, 65'536U);
  EXPECT_EQ(ReceiveBuffer::kUsualSize, 65'536U);
}

TEST(ByteQueue, AFewBytesTakeLittle) {
  ByteQueue queue;
  queue.prepend(counting(100));
  EXPECT_EQ(queue.capacity(), 512U);
}

TEST(ByteQueue, WhatRanEmptyIsUsedAgain) {
  ByteQueue queue;
  queue.append(counting(ByteQueue::kPieceLimit));
  queue.drop(ByteQueue::kPieceLimit);
  const std::size_t kept = queue.capacity();
  queue.append(counting(ByteQueue::kPieceLimit));
  EXPECT_EQ(queue.capacity(), kept);
}

TEST(ReceiveBuffer, UnreadBytesMoveToTheFrontAndStay) {
  ReceiveBuffer buffer;
  fill(buffer, counting(100), 0);
  buffer.consume(90);
  EXPECT_EQ(buffer.room(0).size(), ReceiveBuffer::kUsualSize - 10);
  EXPECT_EQ(unread(buffer), Bytes({90, 91, 92, 93, 94, 95, 96, 97, 98, 99}));
}

TEST(ReceiveBuffer, GrowsByDoublingTowardsALargeFrameOnlyAsItsBytesArrive) {
  ReceiveBuffer buffer;
  constexpr std::size_t frame = std::size_t{16} << 20;
  EXPECT_EQ(buffer.room(frame).size(), ReceiveBuffer::kUsualSize);
  buffer.filled(ReceiveBuffer::kUsualSize);
  EXPECT_EQ(buffer.room(frame).size(), ReceiveBuffer::kUsualSize);
}

TEST(ReceiveBuffer, ALargeFrameComesThroughWholeAndTheBufferShrinksAgain) {
  ReceiveBuffer buffer;
  const Bytes large = counting(1'000'000);
  fill(buffer, large, large.size());
  EXPECT_EQ(unread(buffer), large);
  buffer.consume(large.size());
  EXPECT_EQ(buffer.room(0).size(), ReceiveBuffer::kUsualSize);
}

TEST(ReceiveBuffer, TrimKeepsUnreadBytes) {
  ReceiveBuffer buffer;
  fill(buffer, counting(50'000), 0);
  EXPECT_TRUE(buffer.holdsIdleMemory());
  buffer.trim();
  EXPECT_EQ(unread(buffer), counting(50'000));
  buffer.consume(50'000);
  buffer.trim();
  EXPECT_FALSE(buffer.holdsIdleMemory());
  fill(buffer, counting(10), 0);
  EXPECT_EQ(unread(buffer), counting(10));
}

TEST(SendBacklog, KnowsWhichMessagesAreNotWrittenWhole) {
  SendBacklog backlog;
  const auto handler = std::make_shared<platform::XPCErrorHandler>();
  std::vector<SharedErrorHandler> released;
  backlog.append(counting(10), true, handler);
  backlog.append(counting(20), true, handler);
  backlog.append(counting(30), false, nullptr);
  backlog.written(9, released);
  EXPECT_TRUE(released.empty());
  backlog.written(1, released);
  EXPECT_EQ(released.size(), 1U);
  backlog.written(5, released);
  EXPECT_EQ(backlog.size(), 45U);
  const auto left = backlog.takeAll();
  ASSERT_EQ(left.size(), 2U);
  EXPECT_TRUE(left[0].oneWay);
  EXPECT_FALSE(left[1].oneWay);
  EXPECT_TRUE(backlog.empty());
}

TEST(SendBacklog, APrependedHelloStandsFirstAndMovesTheEnds) {
  SendBacklog backlog;
  std::vector<SharedErrorHandler> released;
  backlog.append(Bytes{5, 6}, true, nullptr);
  backlog.prepend(Bytes{1, 2, 3});
  EXPECT_EQ(Bytes(backlog.front().begin(), backlog.front().end()), Bytes({1, 2, 3}));
  backlog.written(3, released);
  EXPECT_EQ(Bytes(backlog.front().begin(), backlog.front().end()), Bytes({5, 6}));
  backlog.written(1, released);
  EXPECT_EQ(backlog.takeAll().size(), 1U);
}

TEST(SendBacklog, BytesComeOutInOrderWhateverTheSizesOfTheWrites) {
  SendBacklog backlog;
  std::vector<SharedErrorHandler> released;
  Bytes in;
  Bytes out;
  for (std::size_t i = 0; i < 2000; ++i) {
    const Bytes message(i % 37 + 1, static_cast<std::uint8_t>(i));
    in.insert(in.end(), message.begin(), message.end());
    backlog.append(message, true, nullptr);
    const std::size_t take = std::min<std::size_t>(backlog.front().size(), i % 23);
    out.insert(out.end(), backlog.front().begin(),
               backlog.front().begin() + static_cast<std::ptrdiff_t>(take));
    backlog.written(take, released);
  }
  while (!backlog.empty()) {
    const auto front = backlog.front();
    out.insert(out.end(), front.begin(), front.end());
    backlog.written(front.size(), released);
  }
  EXPECT_EQ(in, out);
  EXPECT_TRUE(backlog.takeAll().empty());
}
