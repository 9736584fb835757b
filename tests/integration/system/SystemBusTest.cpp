// SPDX-License-Identifier: Apache-2.0

#include "platform/system/SystemBus.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Inbox.h"
#include "tests/support/PrivateBus.h"

namespace {

using namespace std::chrono_literals;
using platform::system::SystemBus;
using testsupport::Inbox;
using testsupport::PrivateBus;

constexpr const char* kNowhere = "unix:path=/nonexistent/bus";

SystemBus::Options quickAt(const std::string& address) {
  return {.address = address, .firstBreak = 1ms, .longestBreak = 20ms};
}

TEST(SystemBus, JobsRunInTheirOrderOnItsThread) {
  SystemBus bus({.address = kNowhere});
  std::vector<int> ran;
  for (int i = 0; i < 100; ++i) bus.post([&ran, i] { ran.push_back(i); });
  bool wasOnItsThread = false;
  bus.run([&] { wasOnItsThread = bus.isOnItsThread(); });
  EXPECT_TRUE(wasOnItsThread);
  EXPECT_FALSE(bus.isOnItsThread());
  ASSERT_EQ(ran.size(), 100U);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(ran[static_cast<std::size_t>(i)], i);
}

TEST(SystemBus, AJobMayRunAnother) {
  SystemBus bus({.address = kNowhere});
  int ran = 0;
  bus.run([&] {
    bus.run([&] { ++ran; });
    bus.post([&] { ++ran; });
  });
  bus.run([] {});
  EXPECT_EQ(ran, 2);
}

TEST(SystemBus, WhatIsPostedBeforeTheEndRuns) {
  int ran = 0;
  {
    SystemBus bus({.address = kNowhere});
    bus.post([&] { bus.post([&] { ++ran; }); });
  }
  EXPECT_EQ(ran, 1);
}

TEST(SystemBus, TimersGoOffInTheirOrderUnlessCanceled) {
  Inbox<int> fired;
  SystemBus bus({.address = kNowhere});
  bus.run([&] {
    bus.callAfter(20ms, [&] { fired.put(2); });
    const auto canceled = bus.callAfter(10ms, [&] { fired.put(0); });
    bus.callAfter(1ms, [&] { fired.put(1); });
    bus.cancel(canceled);
  });
  EXPECT_EQ(fired.next(), 1);
  EXPECT_EQ(fired.next(), 2);
}

TEST(SystemBus, ATimerMayCancelTheNext) {
  Inbox<int> fired;
  SystemBus bus({.address = kNowhere});
  bus.run([&] {
    const auto second = bus.callAfter(2ms, [&] { fired.put(2); });
    bus.callAfter(1ms, [&bus, &fired, second] {
      bus.cancel(second);
      fired.put(1);
    });
    bus.callAfter(3ms, [&] { fired.put(3); });
  });
  EXPECT_EQ(fired.next(), 1);
  EXPECT_EQ(fired.next(), 3);
}

TEST(SystemBus, AWatchedDescriptorIsReadWhenItCanBe) {
  SystemBus bus({.address = kNowhere});
  const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  Inbox<std::uint64_t> read;
  bus.run([&] {
    bus.watch(descriptor, [&] {
      std::uint64_t count = 0;
      EXPECT_EQ(::read(descriptor, &count, sizeof count), 8);
      bus.unwatch(descriptor);
      read.put(count);
    });
  });
  const std::uint64_t seven = 7;
  ASSERT_EQ(::write(descriptor, &seven, sizeof seven), 8);
  EXPECT_EQ(read.next(), 7U);
  ::close(descriptor);
}

TEST(SystemBus, ItsThreadTakesNoSignals) {
  SystemBus bus({.address = kNowhere});
  sigset_t blocked;
  bus.run([&] { ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked); });
  EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
  EXPECT_EQ(sigismember(&blocked, SIGCHLD), 1);
  EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
}

TEST(SystemBus, WithoutABusThereIsNoConnection) {
  SystemBus bus({.address = kNowhere});
  bool isConnected = true;
  bus.run([&] { isConnected = bus.connection() != nullptr; });
  EXPECT_FALSE(isConnected);
}

TEST(SystemBus, TheEnvironmentDoesNotSayWhichBus) {
  EXPECT_EQ(SystemBus::Options().address, "unix:path=/run/dbus/system_bus_socket");
}

TEST(SystemBus, AListenerLearnsOfTheConnectionItsLossAndTheNextOne) {
  PrivateBus daemon;
  Inbox<bool> changes;
  SystemBus bus(quickAt(daemon.address()));
  bus.run([&] { bus.listen([&](bool isConnected) { changes.put(isConnected); }); });
  EXPECT_TRUE(changes.next());
  daemon.stop();
  EXPECT_FALSE(changes.next());
  daemon.start();
  EXPECT_TRUE(changes.next());
}

TEST(SystemBus, TheBusMayAppearLater) {
  PrivateBus daemon;
  daemon.stop();
  Inbox<bool> changes;
  SystemBus bus(quickAt(daemon.address()));
  bus.run([&] { bus.listen([&](bool isConnected) { changes.put(isConnected); }); });
  daemon.start();
  EXPECT_TRUE(changes.next());
}

TEST(SystemBus, TheEndIsALossForListeners) {
  PrivateBus daemon;
  Inbox<bool> changes;
  {
    SystemBus bus({.address = daemon.address()});
    bus.run([&] { bus.listen([&](bool isConnected) { changes.put(isConnected); }); });
    EXPECT_TRUE(changes.next());
  }
  EXPECT_FALSE(changes.next());
  EXPECT_EQ(changes.size(), 0U);
}

TEST(SystemBus, AListenerMayRemoveAnother) {
  PrivateBus daemon;
  Inbox<int> told;
  std::optional<SystemBus::ListenerID> second;
  SystemBus bus(quickAt(daemon.address()));
  bus.run([&] {
    bus.listen([&](bool isConnected) {
      if (isConnected)
        second = bus.listen([&](bool) { told.put(2); });
      else
        bus.unlisten(*second);
      told.put(1);
    });
  });
  EXPECT_EQ(told.next(), 2);
  EXPECT_EQ(told.next(), 1);
  daemon.stop();
  EXPECT_EQ(told.next(), 1);
}

}  // namespace
