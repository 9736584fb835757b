// SPDX-License-Identifier: Apache-2.0

// Quick stops and starts, with a small client that simply believes every notice.
#include <random>

#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

/// Holds at most one connection, opens one when it is started without one, and closes what it holds
/// at each notice.
class Believer final : public Talk, public std::enable_shared_from_this<Believer> {
 public:
  explicit Believer(std::string service) : service_(std::move(service)) {}

  void setStarted(bool started) {
    started_ = started;
    update();
  }
  [[nodiscard]] bool isStarted() const { return started_; }
  [[nodiscard]] bool isOpen() { return current() != nullptr; }
  [[nodiscard]] std::shared_ptr<NSXPCConnection> current() {
    const std::lock_guard lock(mutex_);
    return connection_;
  }
  void close() {
    if (const auto old = exchange(nullptr)) old->invalidate();
  }

  std::atomic<int> opened{0};
  std::atomic<int> notices{0};
  std::atomic<int> answers{0};

 private:
  void note(std::uint64_t) override {}
  void data_tag(const std::shared_ptr<NSData>&, std::uint32_t) override {}
  void list(const std::shared_ptr<NSArray>&) override {}
  void echo_reply(const std::shared_ptr<NSString>&,
                  XPCReply<const std::shared_ptr<NSString>&>) override {}
  void ask(AskReply) override {}

  std::shared_ptr<NSXPCConnection> exchange(std::shared_ptr<NSXPCConnection> next) {
    const std::lock_guard lock(mutex_);
    connection_.swap(next);
    return next;
  }
  void update() {
    if (started_ && !isOpen()) open();
    if (!started_) close();
  }
  void open() {
    opened.fetch_add(1);
    const auto made = NSXPCConnection::initWithMachServiceName_options(str(service_), 0);
    exchange(made);
    const std::weak_ptr<Believer> self = weak_from_this();
    made->setExportedInterface(NSXPCInterface::interfaceWithProtocol(Talk::protocol()));
    made->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol(Talk::protocol()));
    made->setExportedObject<Talk>(shared_from_this());
    made->setInvalidationHandler([self] {
      if (const auto believer = self.lock()) believer->handleInvalidation();
    });
    made->resume();
    made->remoteObjectProxyWithErrorHandler<Talk>({})->echo_reply(
        str("x"), [self](const std::shared_ptr<NSString>&) {
          if (const auto believer = self.lock()) believer->answers.fetch_add(1);
        });
  }
  void handleInvalidation() {
    notices.fetch_add(1);
    close();
    if (started_) update();
  }

  const std::string service_;
  std::atomic<bool> started_{false};
  std::mutex mutex_;
  std::shared_ptr<NSXPCConnection> connection_;
};

class StaleNotice : public XPCTest {
 protected:
  void SetUp() override {
    service_->prepare = [](End&) {};
  }
  /// Whether no more connections are opened: none is wanted and none exists, or their number stays
  /// the same during a whole round trip. A started believer may be without one for a moment: a
  /// notice that began while it was stopped closes what it has opened since, and it then opens
  /// another.
  bool settles(Believer& believer) {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < limit) {
      const int before = believer.opened;
      const auto connection = believer.current();
      if (!connection) {
        if (!believer.isStarted()) return true;
        std::this_thread::yield();
        continue;
      }
      EventLog log;
      const auto proxy = connection->remoteObjectProxyWithErrorHandler<Talk>(
          [&](const std::shared_ptr<NSError>&) { log.add("error"); });
      if (!proxy) continue;
      proxy->echo_reply(str("y"), [&](const std::shared_ptr<NSString>&) { log.add("answer"); });
      if (!log.waitForLines(1)) return false;
      if (log.lines()[0] == "answer" && believer.opened == before &&
          believer.current() == connection)
        return true;
    }
    return false;
  }
};

}  // namespace

TEST_F(StaleNotice, DoesNotReachTheHolderOfANewerConnection) {
  const auto believer = std::make_shared<Believer>(name_);
  believer->setStarted(true);
  for (int i = 0; i < 100; ++i) {
    believer->setStarted(false);
    believer->setStarted(true);
  }
  EXPECT_TRUE(settles(*believer));
  EXPECT_TRUE(believer->isOpen());
  believer->setStarted(false);
}

TEST_F(StaleNotice, OfTwoLiveConnectionsOfOneObjectEachIsReported) {
  End newer;
  newer.talker = client_.talker;
  newer.configure(makeConnection());
  connect(0, 0);
  newer.connection->resume();
  newer.proxy()->note(1);
  const auto end = service_->end(1);
  ASSERT_TRUE(end && end->log.waitFor("note 1"));
  client_.connection->invalidate();
  EXPECT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(newer.log.count("invalidation"), 0U);
  newer.connection->invalidate();
  EXPECT_TRUE(newer.log.waitFor("invalidation"));
  newer.connection.reset();
}

TEST_F(StaleNotice, ALocalInvalidationIsReportedWhenNoNewerConnectionStands) {
  const auto believer = std::make_shared<Believer>(name_);
  believer->setStarted(true);
  believer->setStarted(false);
  while (believer->notices == 0) std::this_thread::yield();
  EXPECT_FALSE(believer->isOpen());
}

TEST_F(StaleNotice, TenThousandRandomTogglesEndInTheStateLastAskedFor) {
  const auto believer = std::make_shared<Believer>(name_);
  std::mt19937 random(1);
  for (const bool last : {true, false}) {
    int toggles = 0;
    for (int i = 0; i < 5000; ++i) {
      const bool started = random() % 2 == 0;
      believer->setStarted(started);
      ++toggles;
      if (random() % 64 == 0) std::this_thread::yield();
    }
    believer->setStarted(last);
    EXPECT_TRUE(settles(*believer));
    EXPECT_EQ(believer->isOpen(), last);
    EXPECT_LE(believer->opened, 4 * toggles);
  }
  believer->setStarted(false);
  service_->stop();
  ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  EXPECT_FALSE(believer->isOpen());
}
