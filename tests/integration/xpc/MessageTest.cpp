// SPDX-License-Identifier: Apache-2.0

// Messages, requests, and the queue on which they are delivered.
#include <pthread.h>

#include <array>
#include <cerrno>
#include <future>
#include <map>

#include "platform/foundation/NSDictionary.h"
#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

class Message : public XPCTest {};

Lines notes(std::uint64_t first, std::uint64_t end) {
  Lines lines;
  for (std::uint64_t i = first; i < end; ++i) lines.push_back("note " + std::to_string(i));
  return lines;
}

}  // namespace

TEST_F(Message, ArriveInTheOrderOfSendingOnOneThreadThatIsNotTheSenders) {
  const auto end = connect(0);
  const auto proxy = client_.proxy();
  for (std::uint64_t i = 1; i < 5000; ++i) proxy->note(i);
  ASSERT_TRUE(end->log.waitFor("note 4999"));
  EXPECT_EQ(end->log.lines(), notes(0, 5000));
  EXPECT_EQ(end->log.threads().size(), 1U);
  EXPECT_FALSE(end->log.threads().contains(std::this_thread::get_id()));
}

TEST_F(Message, AreTakenOnAThreadThatSaysWhatItIs) {
  std::array<char, 16> name{};
  service_->prepare = [&name](End& end) {
    end.talker->onNote = [&name](std::uint64_t) {
      ::pthread_getname_np(::pthread_self(), name.data(), name.size());
    };
  };
  const auto end = connect();
  end->connection->invalidate();
  ASSERT_TRUE(end->log.waitFor("invalidation"));
  EXPECT_STREQ(name.data(), "xpc connection");
}

TEST_F(Message, OfManyThreadsKeepEachThreadsOrder) {
  const auto end = connect(0);
  constexpr std::uint64_t kThreads = 4;
  constexpr std::uint64_t kEach = 2000;
  std::vector<std::thread> senders;
  for (std::uint64_t t = 0; t < kThreads; ++t) {
    senders.emplace_back([this, t] {
      const auto proxy = client_.proxy();
      for (std::uint64_t i = 0; i < kEach; ++i) proxy->note((t + 1) * 100'000 + i);
    });
  }
  for (auto& sender : senders) sender.join();
  ASSERT_TRUE(end->log.waitForLines(1 + kThreads * kEach));
  std::map<std::uint64_t, std::uint64_t> next;
  Lines lines = end->log.lines();
  lines.erase(lines.begin());
  for (const std::string& line : lines) {
    const std::uint64_t number = std::stoull(line.substr(5));
    EXPECT_EQ(number % 100'000, next[number / 100'000]++);
  }
}

TEST_F(Message, AReplyComesOnTheQueueAndNeverInsideTheSend) {
  const auto end = connect();
  std::atomic<bool> sending{true};
  std::atomic<bool> nested{false};
  client_.proxy()->echo_reply(str("hello"), [&](const std::shared_ptr<NSString>& text) {
    nested = sending.load() && client_.log.threads().contains(std::this_thread::get_id());
    client_.log.add("echo " + text->UTF8String());
  });
  sending = false;
  ASSERT_TRUE(client_.log.waitFor("echo hello"));
  EXPECT_FALSE(nested);
  EXPECT_FALSE(client_.log.threads().contains(std::this_thread::get_id()));
}

TEST_F(Message, ARequestSentInsideADeliveryIsAnsweredAfterIt) {
  client_.talker->onNote = [this](std::uint64_t) {
    client_.proxy()->echo_reply(
        str("x"), [this](const std::shared_ptr<NSString>&) { client_.log.add("answer"); });
    client_.log.add("delivery ends");
  };
  const auto end = connect();
  end->proxy()->note(7);
  ASSERT_TRUE(client_.log.waitFor("answer"));
  EXPECT_EQ(client_.log.lines(), Lines({"note 7", "delivery ends", "answer"}));
}

TEST_F(Message, BothEndsMaySendAndAsk) {
  const auto end = connect();
  client_.ask();
  end->ask();
  ASSERT_TRUE(end->log.waitFor("asked"));
  ASSERT_TRUE(client_.log.waitFor("asked"));
  for (const auto& reply : end->talker->takeHeld()) reply(nullptr);
  for (const auto& reply : client_.talker->takeHeld()) {
    reply(NSError::errorWithDomain_code_userInfo(str("D"), 5, nullptr));
  }
  EXPECT_TRUE(client_.log.waitFor("reply nil"));
  EXPECT_TRUE(end->log.waitFor("reply 5"));
}

TEST_F(Message, RepliesMayComeInAnyOrder) {
  const auto end = connect();
  for (int i = 0; i < 3; ++i) {
    client_.proxy()->ask([this, i](const std::shared_ptr<NSError>&) {
      client_.log.add("answer " + std::to_string(i));
    });
  }
  ASSERT_TRUE(end->log.waitFor("asked", 3));
  auto held = end->talker->takeHeld();
  for (const std::size_t i : {2U, 0U, 1U}) held[i](nullptr);
  ASSERT_TRUE(client_.log.waitForLines(3));
  EXPECT_EQ(client_.log.lines(), Lines({"answer 2", "answer 0", "answer 1"}));
}

TEST_F(Message, TheSecondAnswerToARequestDoesNothing) {
  const auto end = connect();
  client_.ask();
  ASSERT_TRUE(end->log.waitFor("asked"));
  {
    const auto held = end->talker->takeHeld();
    held[0](nullptr);
    held[0](NSError::errorWithDomain_code_userInfo(str("D"), 5, nullptr));
    const AskReply copy = held[0];
    copy(nullptr);
  }
  client_.ask();
  ASSERT_TRUE(end->log.waitFor("asked", 2));
  end->talker->takeHeld()[0](nullptr);
  ASSERT_TRUE(client_.log.waitFor("reply nil", 2));
  EXPECT_EQ(client_.log.lines(), Lines({"reply nil", "reply nil"}));
}

TEST_F(Message, AReplyThatIsDroppedUnansweredBecomesTheErrorHandler) {
  const auto end = connect();
  client_.ask();
  ASSERT_TRUE(end->log.waitFor("asked"));
  end->talker->takeHeld();
  ASSERT_TRUE(client_.log.waitForLines(1));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4101"}));
  client_.proxy()->note(9);
  EXPECT_TRUE(end->log.waitFor("note 9"));
}

TEST_F(Message, TheReplyIsReleasedWithItsErrorHandlerOnceOneOfThemHasRun) {
  const auto end = connect();
  const auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> weak = held;
  std::promise<void> ran;
  {
    const auto proxy = client_.connection->remoteObjectProxyWithErrorHandler<Talk>(
        [held](const std::shared_ptr<NSError>&) { ADD_FAILURE() << "not this one"; });
    proxy->ask([held = held, &ran](const std::shared_ptr<NSError>&) { ran.set_value(); });
  }
  ASSERT_TRUE(end->log.waitFor("asked"));
  EXPECT_FALSE(weak.expired());
  end->talker->takeHeld()[0](nullptr);
  ran.get_future().wait();
  client_.proxy()->echo_reply(
      str("next"), [this](const std::shared_ptr<NSString>&) { client_.log.add("next"); });
  ASSERT_TRUE(client_.log.waitFor("next"));
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(Message, TheExportedObjectIsHeldOnlyWhileADeliveryRuns) {
  const auto end = connect();
  const std::weak_ptr<Talker> weak = client_.talker;
  end->proxy()->note(0);
  ASSERT_TRUE(client_.log.waitFor("note 0"));
  client_.talker.reset();
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (!weak.expired() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  EXPECT_TRUE(weak.expired());
  end->proxy()->note(1);
  end->ask();
  ASSERT_TRUE(end->log.waitFor("error 4101"));
  client_.proxy()->note(2);
  EXPECT_TRUE(end->log.waitFor("note 2"));
  EXPECT_EQ(client_.log.lines(), Lines({"note 0"}));
  client_.talker = std::make_shared<Talker>(client_.log);
}

TEST_F(Message, AnotherExportedObjectMayTakeThePlaceOfOne) {
  const auto end = connect();
  EventLog second;
  const auto replacement = std::make_shared<Talker>(second);
  client_.connection->setExportedObject<Talk>(replacement);
  end->proxy()->note(1);
  EXPECT_TRUE(second.waitFor("note 1"));
}

TEST_F(Message, AnotherExportedObjectTakesWhatComesAfterADelivery) {
  const auto end = connect();
  end->proxy()->note(1);
  ASSERT_TRUE(client_.log.waitFor("note 1"));
  EventLog second;
  const auto replacement = std::make_shared<Talker>(second);
  client_.connection->setExportedObject<Talk>(replacement);
  end->proxy()->note(2);
  EXPECT_TRUE(second.waitFor("note 2"));
  EXPECT_EQ(client_.log.lines(), Lines({"note 1"}));
}

TEST_F(Message, ForAnObjectThatGoesWithItsConnectionIsDroppedInSilence) {
  const auto end = connect();
  client_.talker = std::make_shared<Talker>(client_.log);  // the exported one no longer exists
  end->proxy()->note(1);
  end->ask();
  ASSERT_TRUE(end->log.waitFor("error 4101"));
  client_.connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(logged_.lines(), Lines());
}

TEST_F(Message, ForAnObjectThatIsGoneIsReportedWhenTheConnectionIsEndedByItsPeer) {
  const auto end = connect();
  client_.talker = std::make_shared<Talker>(client_.log);
  end->proxy()->note(1);
  end->ask();
  ASSERT_TRUE(end->log.waitFor("error 4101"));
  end->connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(logged_.linesWith("2 messages dropped: the exported object is gone"), 1U);
  EXPECT_EQ(logged_.lines().size(), 1U);
}

TEST_F(Message, ForNoObjectIsReportedAtOnceAndOnce) {
  client_.connection->setExportedObject<Talk>(nullptr);
  const auto end = connect();
  end->proxy()->note(1);
  end->ask();
  ASSERT_TRUE(end->log.waitFor("error 4101"));
  EXPECT_EQ(logged_.linesWith("no object is exported"), 1U);
}

TEST_F(Message, ABatchArrivesWholeAndInOrderWhenItIsSent) {
  const auto end = connect(0);
  const auto [batch, proxy] = client_.batch();
  for (std::uint64_t i = 2; i < 100; ++i) proxy->note(i);
  client_.proxy()->note(1);  // not through the batch: sent at once
  ASSERT_TRUE(end->log.waitFor("note 1"));
  EXPECT_EQ(end->log.lines(), notes(0, 2));
  batch->send();
  ASSERT_TRUE(end->log.waitFor("note 99"));
  batch->send();  // it is empty by now
  proxy->note(100);
  batch->send();
  ASSERT_TRUE(end->log.waitFor("note 100"));
  EXPECT_EQ(end->log.lines(), notes(0, 101));
  EXPECT_EQ(client_.connection->unsentBytes(), 0U);
}

TEST_F(Message, BatchesOfTwoConnectionsDoNotMeet) {
  const auto end = connect(0);
  End other;
  other.configure(makeConnection());
  other.connection->resume();
  other.proxy()->note(0);
  const auto otherEnd = service_->end(1);
  ASSERT_TRUE(otherEnd && otherEnd->log.waitFor("note 0"));
  const auto [one, first] = client_.batch();
  const auto [two, second] = other.batch();
  for (std::uint64_t i = 1; i < 5; ++i) {
    first->note(i);
    second->note(i);
  }
  two->send();
  EXPECT_TRUE(otherEnd->log.waitFor("note 4"));
  EXPECT_EQ(end->log.lines(), notes(0, 1));
  one->send();
  EXPECT_TRUE(end->log.waitFor("note 4"));
  EXPECT_EQ(end->log.lines(), notes(0, 5));
  EXPECT_EQ(otherEnd->log.lines(), notes(0, 5));
  other.connection.reset();
}

TEST_F(Message, WhatABatchDoesNotSendIsForgottenWithIt) {
  const auto end = connect(0);
  client_.batch().second->note(7);
  client_.proxy()->note(1);
  ASSERT_TRUE(end->log.waitFor("note 1"));
  EXPECT_EQ(end->log.lines(), notes(0, 2));
}

TEST_F(Message, ALargeBatchDoesNotWaitToBeSent) {
  const auto end = connect(0);
  const auto [batch, proxy] = client_.batch();
  const auto data = NSData::dataWithBytes(std::vector<std::uint8_t>(300'000));
  proxy->data_tag(data, 1);
  EXPECT_TRUE(end->log.waitFor("data 300000 1"));
}

TEST_F(Message, ABatchTakesNoRequests) {
  const auto end = connect(0);
  const auto [batch, proxy] = client_.batch();
  proxy->note(1);
  proxy->ask([this](const std::shared_ptr<NSError>&) { client_.log.add("answered"); });
  proxy->note(2);
  batch->send();
  ASSERT_TRUE(end->log.waitFor("note 2"));
  ASSERT_TRUE(client_.log.waitFor("error " + std::to_string(EINVAL)));
  EXPECT_EQ(end->log.lines(), notes(0, 3));
  EXPECT_EQ(client_.log.count("answered"), 0U);
}

TEST_F(Message, WhatABatchCannotEncodeFailsAndTheRestGoesOut) {
  const auto end = connect(0);
  const auto array = NSMutableArray::array();
  array->addObject(array);
  const auto [batch, proxy] = client_.batch();
  proxy->note(1);
  proxy->list(array);
  proxy->note(2);
  batch->send();
  array->removeObjectAtIndex(0);
  ASSERT_TRUE(client_.log.waitFor("error " + std::to_string(EINVAL)));
  ASSERT_TRUE(end->log.waitFor("note 2"));
  EXPECT_EQ(end->log.lines(), notes(0, 3));
}

TEST_F(Message, AReplyWithoutAnEncodingIsDroppedAndTheConnectionLives) {
  const auto end = connect();
  client_.ask();
  ASSERT_TRUE(end->log.waitFor("asked"));
  const auto array = NSMutableArray::array();
  array->addObject(array);
  const auto info = NSDictionary::dictionaryWithEntries({{str("loop"), array}});
  end->talker->takeHeld().at(0)(NSError::errorWithDomain_code_userInfo(str("Test"), 1, info));
  array->removeObjectAtIndex(0);
  ASSERT_TRUE(client_.log.waitFor("error 4101"));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4101"}));
  EXPECT_EQ(logged_.linesWith("a reply was not sent"), 1U);
  client_.proxy()->note(3);
  EXPECT_TRUE(end->log.waitFor("note 3"));
}

TEST_F(Message, LargeDataComesThroughWhole) {
  const auto end = connect();
  for (const std::size_t size : {1UL << 16, (1UL << 16) - 14, 5UL << 20}) {
    client_.proxy()->data_tag(NSData::dataWithLength(size,
                                                     [](std::span<std::uint8_t> bytes) {
                                                       std::fill(bytes.begin(), bytes.end(),
                                                                 std::uint8_t{7});
                                                     }),
                              1);
    EXPECT_TRUE(end->log.waitFor("data " + std::to_string(size) + " 1"));
  }
}

TEST_F(Message, AFrameMayBeSixteenMebibytesAndNoMore) {
  const auto end = connect();
  const auto send = [&](std::size_t size) {
    client_.proxy()->data_tag(NSData::dataWithLength(size, [](std::span<std::uint8_t>) {}), 2);
  };
  constexpr std::size_t kOverhead = 8 + 1 + 5 + 4;  // header, tag, long size, the number
  constexpr std::size_t kLargest = (std::size_t{16} << 20) - kOverhead;
  send(kLargest - 1);
  send(kLargest);
  EXPECT_TRUE(end->log.waitFor("data " + std::to_string(kLargest - 1) + " 2"));
  EXPECT_TRUE(end->log.waitFor("data " + std::to_string(kLargest) + " 2"));
  send(kLargest + 1);
  EXPECT_TRUE(client_.log.waitFor("error " + std::to_string(EMSGSIZE)));
  client_.proxy()->note(3);
  EXPECT_TRUE(end->log.waitFor("note 3"));
}

TEST_F(Message, AnArgumentWithoutAnEncodingIsAnErrorAndTheConnectionLives) {
  const auto end = connect();
  const auto array = NSMutableArray::array();
  array->addObject(array);
  client_.proxy()->list(array);
  EXPECT_TRUE(client_.log.waitFor("error " + std::to_string(EINVAL)));
  array->removeObjectAtIndex(0);
  client_.proxy()->list(array);
  EXPECT_TRUE(end->log.waitFor("list 0"));
}

TEST_F(Message, AnExportedMethodThatThrowsCostsOneLogLine) {
  client_.talker->onNote = [](std::uint64_t number) {
    if (number == 1) throw std::runtime_error("boom");
  };
  const auto end = connect();
  end->proxy()->note(1);
  end->proxy()->note(2);
  EXPECT_TRUE(client_.log.waitFor("note 2"));
  EXPECT_EQ(logged_.linesWith("an exported method threw: boom"), 1U);
}

TEST_F(Message, WithoutAFittingInterfaceThereIsNoProxy) {
  client_.connection->setRemoteObjectInterface(nullptr);
  EXPECT_EQ(client_.connection->remoteObjectProxyWithErrorHandler<Talk>({}), nullptr);
}
