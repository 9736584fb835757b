// SPDX-License-Identifier: Apache-2.0

// Sessions whose start requests wait as long as the test wants: the test itself wakes them.
#include "router/Session.h"

#include "RouterFixture.h"
#include "router/RouterErrors.h"

namespace {

using router::RoutedDevice;
using router::RouterLimits;
using router::Session;
using router::StartLine;
using routertest::Client;
using routertest::LineLog;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint64_t kDevice = 0x100000001;
constexpr const char* kStarted = "started";
constexpr const char* kInUse =
    "refused -536870203 the device \"Mouse\" is in use by another client";
constexpr const char* kStopped =
    "refused -536870165 the start request was given up: a stop request came";

class SilentDevice final : public router::OpenDevice {
 public:
  [[nodiscard]] const std::vector<std::uint8_t>& reportDescriptor() const override {
    return descriptor_;
  }
  [[nodiscard]] bool waitsForReaders() const override { return false; }
  Next next(const router::StopSignal& stop, std::span<const std::uint8_t>*) override {
    while (!stop.waitUntil(std::chrono::steady_clock::now() + std::chrono::hours(1))) {
    }
    return Next::Stopped;
  }

 private:
  const std::vector<std::uint8_t> descriptor_;
};

/// What a session needs from the router. One device, and a line that wakes no request.
class Owner final : public platform::NSXPCListenerDelegate,
                    public router::SessionOwner,
                    public std::enable_shared_from_this<Owner> {
 public:
  explicit Owner(const RouterLimits& limits)
      : line_(std::make_shared<StartLine>(limits)),
        backlog_(std::make_shared<router::Backlog>(limits)) {}

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>&,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override {
    const auto session = std::make_shared<Session>(1, connection, weak_from_this(), backlog_);
    connection->setExportedInterface(router::routerInterface());
    connection->setExportedObject<WLHIDEventRouterProtocol>(session);
    connection->setRemoteObjectInterface(router::routerClientInterface());
    connection->setInvalidationHandler([session] { session->end(); });
    connection->resume();
    return true;
  }
  StartLine& startLine() override { return *line_; }
  std::shared_ptr<RoutedDevice> deviceWithID(std::uint64_t registryEntryID) override {
    return registryEntryID == kDevice ? device_ : nullptr;
  }
  router::EndedRoutings& endedRoutings() override { return ended_; }
  void sessionChanged() override { changes.fetch_add(1); }
  void log(uid_t, const platform::LogLine& line) override { lines.add(line.text()); }

  LineLog lines;
  std::atomic<int> changes{0};

 private:
  const std::shared_ptr<StartLine> line_;
  const std::shared_ptr<router::Backlog> backlog_;
  router::EndedRoutings ended_{RouterLimits()};
  const std::shared_ptr<RoutedDevice> device_ = std::make_shared<RoutedDevice>(
      router::DeviceDescription{kDevice, "Mouse", 3, 1, 2, "test"},
      [] { return std::make_unique<SilentDevice>(); }, [](std::string_view) {});
};

class SessionTest : public routertest::RouterFixture {
 protected:
  void serve(const RouterLimits& limits = {}) {
    owner_ = std::make_shared<Owner>(limits);
    listener_ = platform::NSXPCListener::initWithListeningDescriptor(listen());
    listener_->setDelegate(owner_);
    listener_->resume();
  }
  void TearDown() override {
    listener_->invalidate();
    routertest::RouterFixture::TearDown();
  }
  /// The wake of the waiting start request, once there is one.
  StartLine::Wake takeWake() {
    const auto limit = StartLine::Clock::now() + routertest::kPatience;
    while (StartLine::Clock::now() < limit) {  // no event to wait for
      const auto due = owner_->startLine().takeDue(limit + std::chrono::hours(10));
      if (!due.empty()) return due.front();
      std::this_thread::yield();
    }
    ADD_FAILURE() << "no request is waiting";
    return [] {};
  }

  std::shared_ptr<Owner> owner_;
  std::shared_ptr<platform::NSXPCListener> listener_;
};

TEST_F(SessionTest, WhoseTurnHasComeHasUsedIt) {
  RouterLimits limits;
  limits.startsPerUser = {1, 0.001};
  limits.startTimeout = std::chrono::seconds(1500);
  serve(limits);
  Client client;
  client.start(0x42);
  client.log->await(1);
  client.start(0x43);
  takeWake()();
  EXPECT_THAT(client.log->await(2)[1], HasSubstr("0x43"));
  client.start(0x44);
  EXPECT_THAT(client.log->await(3)[2], HasSubstr("too many start requests"));
}

TEST_F(SessionTest, WhoWaitedForAPlaceForLongEnoughIsRefused) {
  serve();
  Client owner;
  owner.start(kDevice, 1);
  owner.log->await(1);
  Client waiting;
  waiting.start(kDevice, 1);
  takeWake()();
  EXPECT_THAT(waiting.log->await(1), ElementsAre(kInUse));
  owner_->lines.awaitLine("cannot route");
  owner.stop();
  Client next;
  next.start(kDevice, 1);
  EXPECT_THAT(next.log->await(1), ElementsAre(kStarted));
}

TEST_F(SessionTest, WhoWaitsHasAPlaceThatBecomesFreeInTimeOnce) {
  serve();
  Client owner;
  owner.start(kDevice, 1);
  owner.log->await(1);
  Client waiting;
  waiting.start(kDevice, 1);
  const auto late = takeWake();
  owner.stop();
  EXPECT_THAT(waiting.log->await(1), ElementsAre(kStarted));
  late();
  waiting.stop();
  waiting.start(0x42);
  EXPECT_THAT(waiting.log->await(2), ElementsAre(kStarted, HasSubstr("0x42")));
}

TEST_F(SessionTest, AWakeForARequestThatWasGivenUpIsNotForTheNext) {
  RouterLimits limits;
  limits.startsPerUser = {2, 0.001};
  limits.startTimeout = std::chrono::seconds(1500);
  serve(limits);
  Client owner;
  owner.start(kDevice, 1);
  owner.log->await(1);
  Client waiting;
  waiting.start(kDevice, 1);
  const auto late = takeWake();
  waiting.stop();
  waiting.start(0x42);
  const auto wake = takeWake();
  late();
  waiting.stop();
  EXPECT_THAT(waiting.log->await(2), ElementsAre(kStopped, kStopped));
  wake();
  waiting.start(0x43);
  waiting.stop();
  EXPECT_THAT(waiting.log->await(3), ElementsAre(kStopped, kStopped, kStopped));
}

TEST_F(SessionTest, WhatStartsAndStopsWithoutRoutingChangesNothingForOthersToSee) {
  serve();
  Client owner;
  owner.start(kDevice, 1);
  owner.log->await(1);
  owner.start(0x42);
  owner.start(kDevice, 1);
  owner.log->await(3);
  owner_->lines.awaitLine("cannot route");
  Client waiting;
  const int before = owner_->changes;
  EXPECT_GE(before, 2);
  for (int i = 0; i < 10; ++i) {
    waiting.start(kDevice);
    waiting.stop();
  }
  waiting.log->await(10);
  EXPECT_LE(owner_->changes, 3) << "the two starts and the end of the first";
}

}  // namespace
