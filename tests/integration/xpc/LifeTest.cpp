// SPDX-License-Identifier: Apache-2.0

// From the first message to the end: launching, interruption, invalidation, release, and leaks.
#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>
#include <future>

#include "platform/xpc/Pacing.h"
#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

class Life : public XPCTest {
 protected:
  /// Opens and ends connection `number` of a test, in one of three ways.
  void openAndEnd(std::size_t number) {
    client_.configure(makeConnection());
    const auto end = connect(number, number);
    if (number % 3 == 0) client_.connection->invalidate();
    if (number % 3 == 1) client_.connection.reset();
    if (number % 3 == 2) end->connection->invalidate();
    end->connection.reset();
    client_.connection.reset();
  }
};

std::size_t openDescriptors() {
  const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// A peer process that serves a listening socket created by this test.
class PeerProcess {
 public:
  explicit PeerProcess(const std::string& path)
      : listening_(listenUnixSocket(path, SOCK_STREAM, 16, 0600)) {
    start();
  }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;
  ~PeerProcess() {
    crash();
    ::close(listening_);
  }
  void start() {
    const std::string number = std::to_string(listening_);
    process_ = ::fork();
    if (process_ == 0) {
      ::fcntl(listening_, F_SETFD, 0);
      ::execl(XPC_TEST_PEER, XPC_TEST_PEER, number.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  void crash() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }
  [[nodiscard]] pid_t process() const { return process_; }

 private:
  int listening_;
  pid_t process_ = -1;
};

class LifeWithAProcess : public ::testing::Test {
 protected:
  LifeWithAProcess() : path_((directory_.path() / "service.sock").string()), peer_(path_) {
    previous_ = serviceEndpoints().exchange(std::make_shared<OneEndpoint>(name_, path_));
    client_.configure(NSXPCConnection::initWithMachServiceName_options(str(name_), 0));
    client_.connection->resume();
  }
  ~LifeWithAProcess() override {
    client_.connection.reset();
    EXPECT_TRUE(waitUntilNoConnectionIsLeft());
    serviceEndpoints().exchange(previous_);
  }
  void echo(const std::string& text) {
    client_.proxy()->echo_reply(str(text), [this](const std::shared_ptr<NSString>& answer) {
      client_.log.add("echo " + answer->UTF8String());
    });
  }

  TemporaryDirectory directory_;
  const std::string name_ = freshServiceName();
  const std::string path_;
  LogCapture logged_;
  PeerProcess peer_;
  End client_;
  std::shared_ptr<ServiceEndpoints> previous_;
};

}  // namespace

TEST_F(Life, NothingStartsBeforeTheFirstMessage) {
  EXPECT_EQ(endpoint_->asked, 0);
  client_.connection->resume();
  EXPECT_EQ(client_.connection->processIdentifier(), -1);
  EXPECT_EQ(endpoint_->asked, 0);
  connect();
  EXPECT_EQ(endpoint_->asked, 1);
  EXPECT_EQ(client_.connection->processIdentifier(), ::getpid());
  EXPECT_EQ(client_.connection->effectiveUserIdentifier(), ::geteuid());
}

TEST_F(Life, MessagesSentBeforeResumeWaitForIt) {
  client_.proxy()->note(1);
  client_.proxy()->note(2);
  EXPECT_EQ(endpoint_->asked, 0);
  client_.connection->resume();
  const auto end = service_->end();
  ASSERT_TRUE(end && end->log.waitFor("note 2"));
  EXPECT_EQ(end->log.lines(), Lines({"note 1", "note 2"}));
}

TEST_F(Life, AnUnknownNameIsAnInvalidationOnTheQueue) {
  for (const auto& name : {str("com.quillmar.nobody"), std::shared_ptr<NSString>()}) {
    End end;
    end.configure(NSXPCConnection::initWithMachServiceName_options(name, 0));
    end.connection->resume();
    end.ask();
    ASSERT_TRUE(end.log.waitFor("invalidation"));
    EXPECT_EQ(end.log.lines(), Lines({"error 4099", "invalidation"}));
    EXPECT_FALSE(end.log.threads().contains(std::this_thread::get_id()));
    end.connection.reset();
  }
}

TEST_F(Life, APassingShortageIsWaitedOut) {
  endpoint_->refusals = 5;
  const auto end = connect(4);
  EXPECT_EQ(endpoint_->asked, 6);
}

TEST_F(Life, AShortageThatDoesNotPassIsAnInvalidation) {
  const unsigned before = xpc::attemptsWhileShort.exchange(3);
  endpoint_->refusals = 1'000'000;
  client_.connection->resume();
  client_.ask();
  EXPECT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4099", "invalidation"}));
  EXPECT_EQ(endpoint_->asked, 3);
  xpc::attemptsWhileShort = before;
}

TEST_F(Life, InvalidateEndsTheWaitForAShortage) {
  endpoint_->refusals = 1'000'000;
  client_.connection->resume();
  client_.ask();
  client_.connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4099", "invalidation"}));
}

TEST_F(Life, TheInvalidationHandlerRunsOnceAndLastAndIsReleased) {
  const auto held = std::make_shared<int>(0);
  const auto end = connect();
  client_.connection->setInvalidationHandler([this, held] { client_.log.add("invalidation"); });
  client_.connection->setInterruptionHandler([this, held] { client_.log.add("interruption"); });
  client_.ask();
  client_.ask();
  client_.connection->invalidate();
  client_.connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  client_.connection->invalidate();
  client_.proxy()->note(1);
  ASSERT_TRUE(client_.log.waitForLines(4));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4099", "error 4099", "invalidation", "error 4099"}));
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(Life, AHandlerSetAfterTheEndIsNotKept) {
  connect();
  client_.connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  ASSERT_TRUE(waitUntilNoConnectionIsLeft() || service_->accepted() == 1);
  const auto held = std::make_shared<int>(0);
  client_.connection->setInvalidationHandler([held] {});
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(Life, AConnectionThatWasNeverResumedReportsItsInvalidationToo) {
  client_.ask();
  client_.connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4099", "invalidation"}));
  EXPECT_EQ(endpoint_->asked, 0);
}

TEST_F(Life, InvalidateFromEveryHandlerDoesNotNest) {
  const auto end = connect();
  client_.connection->setInvalidationHandler([this] {
    client_.connection->invalidate();
    client_.log.add("invalidation");
  });
  client_.proxy()->echo_reply(str("x"), [this](const std::shared_ptr<NSString>&) {
    client_.connection->invalidate();
    client_.log.add("reply ends");
  });
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(client_.log.lines(), Lines({"reply ends", "invalidation"}));
}

TEST_F(Life, NothingIsDeliveredAfterInvalidate) {
  client_.talker->onNote = [this](std::uint64_t number) {
    if (number == 1) client_.connection->invalidate();
  };
  const auto end = connect();
  const auto [batch, proxy] = end->batch();
  for (std::uint64_t i = 0; i < 10; ++i) proxy->note(i);
  batch->send();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(client_.log.lines(), Lines({"note 0", "note 1", "invalidation"}));
}

TEST_F(Life, WhatWasSentBeforeInvalidateArrivesEvenIfNoStreamStoodYet) {
  client_.connection->resume();
  for (std::uint64_t i = 0; i < 100; ++i) client_.proxy()->note(i);
  client_.connection->invalidate();
  const auto end = service_->end();
  ASSERT_TRUE(end && end->log.waitFor("invalidation"));
  EXPECT_EQ(end->log.count("note 99"), 1U);
  EXPECT_EQ(end->log.lines().size(), 101U);
}

TEST_F(Life, WhatWasSentBeforeInvalidateArrivesThroughAFullSocket) {
  std::promise<void> gate;
  const auto opened = gate.get_future().share();
  service_->prepare = [opened](End& end) {
    end.talker->onNote = [opened](std::uint64_t) { opened.wait(); };
  };
  client_.connection->resume();
  client_.proxy()->note(0);
  const auto end = service_->end();
  const auto proxy = client_.proxy();
  for (std::uint32_t i = 1; i <= 5000; ++i)
    proxy->data_tag(NSData::dataWithLength(1000, [](auto) {}), i);
  EXPECT_GT(client_.connection->unsentBytes(), 0U);
  client_.connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  gate.set_value();
  ASSERT_TRUE(end->log.waitFor("invalidation"));
  EXPECT_EQ(end->log.count("data 1000 5000"), 1U);
  EXPECT_EQ(end->log.lines().size(), 5002U);
}

TEST_F(Life, ADroppedConnectionEndsQuietlyAndItsRequestsFail) {
  const auto end = connect();
  client_.ask();
  ASSERT_TRUE(end->log.waitFor("asked"));
  client_.connection.reset();
  ASSERT_TRUE(end->log.waitFor("invalidation"));
  end->connection.reset();
  end->talker->takeHeld();
  ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  EXPECT_EQ(client_.log.lines(), Lines({"error 4099"}));
}

TEST_F(Life, ADroppedConnectionThatWasNeverResumedFailsItsRequests) {
  client_.ask();
  client_.connection.reset();
  ASSERT_TRUE(client_.log.waitFor("error 4099"));
  ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  EXPECT_EQ(client_.log.lines(), Lines({"error 4099"}));
}

TEST_F(Life, AProxyOutlivesItsConnectionAndFails) {
  const auto end = connect();
  const auto proxy = client_.proxy();
  client_.connection.reset();
  proxy->note(5);
  proxy->ask([](const std::shared_ptr<NSError>&) { ADD_FAILURE() << "an answer from nowhere"; });
  ASSERT_TRUE(client_.log.waitFor("error 4099", 2));
  end->connection.reset();
  EXPECT_TRUE(waitUntilNoConnectionIsLeft());
}

TEST_F(Life, AConnectionMayBeDroppedByItsOwnHandlers) {
  const auto end = connect();
  end->proxy()->note(1);
  client_.proxy()->echo_reply(str("x"), [this](const std::shared_ptr<NSString>&) {
    client_.connection.reset();
    client_.log.add("dropped");
  });
  ASSERT_TRUE(client_.log.waitFor("dropped"));
  ASSERT_TRUE(end->log.waitFor("invalidation"));
}

TEST_F(Life, NoDescriptorOrThreadStaysBehind) {
  connect();
  client_.connection.reset();
  service_->end()->connection.reset();
  ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  // A count may include a listener of an earlier test that is still closing, or lack the descriptor
  // that a listener keeps for its next connection; a leak would make every count larger than the
  // one before.
  const std::size_t first = openDescriptors();
  std::size_t last = first;
  std::size_t connections = 0;
  int same = 0;
  for (int round = 0; round < 10 && same < 2; ++round) {
    for (int i = 0; i < 50; ++i) openAndEnd(++connections);
    ASSERT_TRUE(waitUntilNoConnectionIsLeft());
    const std::size_t now = openDescriptors();
    same = now == last ? same + 1 : 0;
    last = now;
  }
  EXPECT_EQ(same, 2);
  EXPECT_LE(last, first + 1) << "more than the listener's spare one";
}

TEST_F(Life, AnAnswerToARequestOfAnEarlierStreamAnswersNoneOfTheNext) {
  const auto error = [](std::int64_t code) {
    return NSError::errorWithDomain_code_userInfo(str("Test"), code, nullptr);
  };
  const auto first = connect();
  first->ask();
  ASSERT_TRUE(client_.log.waitFor("asked"));
  const auto late = client_.talker->takeHeld();
  first->connection.reset();
  ASSERT_TRUE(client_.log.waitFor("interruption"));
  const auto second = connect(1, 1);
  second->ask();  // with the ID of the first stream's request
  ASSERT_TRUE(client_.log.waitFor("asked", 2));
  late.at(0)(error(7));
  client_.talker->takeHeld().at(0)(error(8));
  ASSERT_TRUE(second->log.waitFor("reply 8"));
  EXPECT_EQ(second->log.lines(), Lines({"note 1", "reply 8"}));
}

TEST_F(Life, AFailureThatAnErrorHandlerBringsAboutComesBeforeTheNoticeToo) {
  const auto endless = NSMutableArray::array();
  endless->addObject(endless);
  const auto end = connect();
  const auto proxy = client_.connection->remoteObjectProxyWithErrorHandler<Talk>(
      [&](const std::shared_ptr<NSError>& error) {
        client_.log.add("error " + std::to_string(error->code()));
        client_.proxy()->list(endless);
      });
  proxy->ask({});
  ASSERT_TRUE(end->log.waitFor("asked"));
  end->connection.reset();
  ASSERT_TRUE(client_.log.waitFor("interruption"));
  EXPECT_EQ(client_.log.lines(),
            Lines({"error 4097", "error " + std::to_string(EINVAL), "interruption"}));
  endless->removeObjectAtIndex(0);
}

TEST_F(Life, WhatIsSentBeforeTheNoticeIsDueFailsAheadOfItAndTheRestAfterIt) {
  const auto end = connect();
  // Sent by the last error handler before the report, and by another thread once the report is
  // being made, when nothing can precede it any more.
  std::promise<void> turn;
  std::promise<void> sent;
  client_.connection->setInvalidationHandler([&] {
    turn.set_value();
    sent.get_future().wait();
    client_.log.add("invalidation");
  });
  const auto proxy = client_.connection->remoteObjectProxyWithErrorHandler<Talk>(
      [&](const std::shared_ptr<NSError>&) {
        client_.log.add("pending fails");
        client_.ask();
      });
  proxy->ask({});
  ASSERT_TRUE(end->log.waitFor("asked"));
  std::thread late([&] {
    turn.get_future().wait();
    client_.ask();
    client_.log.add("sent");
    sent.set_value();
  });
  end->connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("error 4099", 2));
  late.join();
  EXPECT_EQ(client_.log.lines(),
            Lines({"pending fails", "error 4099", "sent", "invalidation", "error 4099"}));
}

TEST_F(Life, InvalidateAfterTheEndStartsNothing) {
  const auto end = connect();
  end->connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  client_.connection->invalidate();
  EXPECT_EQ(liveConnectionCount(), 0U);
  EXPECT_EQ(client_.log.count("invalidation"), 1U);
}

TEST_F(Life, ASendAfterTheEndStartsNothingWhereNobodyWantsToHearOfIt) {
  const auto end = connect();
  end->connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  const auto proxy = client_.connection->remoteObjectProxyWithErrorHandler<Talk>({});
  const auto held = std::make_shared<int>(0);
  proxy->note(1);
  proxy->ask([held](const std::shared_ptr<NSError>&) {});
  const auto batch = client_.connection->makeBatch();
  batch->proxyWithErrorHandler<Talk>({})->note(2);
  batch->send();
  EXPECT_EQ(liveConnectionCount(), 0U);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(LifeWithAProcess, ACrashFailsWhatIsPendingThenInterruptsAndTheNextMessageConnectsAgain) {
  client_.ask();
  client_.ask();
  echo("one");
  ASSERT_TRUE(client_.log.waitFor("echo one"));
  EXPECT_EQ(client_.connection->processIdentifier(),
            ::getpid());  // the creator of the endpoint, not the process that serves it
  peer_.crash();
  ASSERT_TRUE(client_.log.waitFor("interruption"));
  EXPECT_EQ(client_.log.lines(), Lines({"echo one", "error 4097", "error 4097", "interruption"}));
  peer_.start();
  echo("two");
  ASSERT_TRUE(client_.log.waitFor("echo two"));
  peer_.crash();
  ASSERT_TRUE(client_.log.waitFor("interruption", 2));
}

TEST_F(LifeWithAProcess, MessagesSentIntoACrashFailOrArriveButNeverVanish) {
  echo("one");
  ASSERT_TRUE(client_.log.waitFor("echo one"));
  std::atomic<int> ends{0};
  const auto proxy = client_.connection->remoteObjectProxyWithErrorHandler<Talk>(
      [&](const std::shared_ptr<NSError>&) { ends.fetch_add(1); });
  int sent = 0;
  std::thread sender([&] {
    for (; sent < 3000; ++sent) {
      proxy->echo_reply(str("x"), [&](const std::shared_ptr<NSString>&) { ends.fetch_add(1); });
      if (sent == 1000) peer_.crash();
      if (sent == 2000) peer_.start();
    }
  });
  sender.join();
  client_.connection->invalidate();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(ends, sent);
}

TEST_F(Life, ConnectionsThatKeepEndingAtOnceAreReportedAllTheSame) {
  service_->refuses = true;
  for (int i = 0; i < 8; ++i) {
    End end;
    end.talker = client_.talker;
    end.configure(makeConnection());
    end.connection->resume();
    end.ask();
    ASSERT_TRUE(end.log.waitFor("invalidation"));
    EXPECT_EQ(end.log.lines(), Lines({"error 4099", "invalidation"}));
    end.connection.reset();
  }
  EXPECT_GT(xpc::pauseAfterEnd(client_.talker, name_, {}), std::chrono::milliseconds(0))
      << "each end was counted";
}

TEST_F(Life, InvalidateEndsThePauseBeforeANotice) {
  service_->refuses = true;
  for (int i = 0; i < 100; ++i) {  // a minute and a half of pauses if none were cut short
    End end;
    end.talker = client_.talker;  // one client, whose connections keep ending
    end.configure(makeConnection());
    end.connection->resume();
    end.ask();
    ASSERT_TRUE(end.log.waitFor("error 4099"));
    end.connection->invalidate();
    ASSERT_TRUE(end.log.waitFor("invalidation"));
    end.connection.reset();
  }
}
