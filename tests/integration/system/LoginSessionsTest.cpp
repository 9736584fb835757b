// SPDX-License-Identifier: Apache-2.0

#include "platform/system/LoginSessions.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "platform/services/FileDescriptor.h"
#include "tests/support/Inbox.h"
#include "tests/support/MockLogind.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/PrivateBus.h"

namespace {

using namespace std::chrono_literals;
using platform::FileDescriptor;
using platform::system::LoginSessions;
using platform::system::PeerProcess;
using platform::system::SessionState;
using platform::system::SystemBus;
using testsupport::Inbox;
using testsupport::MockLogind;
using testsupport::OtherProcess;
using testsupport::PrivateBus;

/// For a failed test's message, and to compare with.
std::string inWords(const SessionState& state) {
  std::string words = state.session;
  if (state.hasEnded) return words + " ended";
  words += state.isActive ? " active" : " inactive";
  if (state.isLocked) words += " locked";
  if (state.isRemote) words += " remote";
  return words;
}

class Sessions : public testing::Test {
 protected:
  Sessions() {
    logind_->set("3", {});
    connect();
  }

  void connect(SystemBus::Clock::duration limit = 60s) {
    sessions_ = std::make_unique<LoginSessions>(
        bus_, LoginSessions::Options{.changes = changes_.get(), .limit = limit});
  }
  LoginSessions::WatchID watch(const std::string& session) {
    return sessions_->watch(session, [this](const SessionState& state) {
      EXPECT_TRUE(bus_.isOnItsThread());
      states_.put(state);
    });
  }
  std::string next() { return inWords(states_.next()); }
  /// Everything that was signaled before has been told: this comes after it, from the same sender.
  void expectNoMoreChanges() {
    logind_->set("fence", {});
    Inbox<std::string> fence;
    const auto id =
        sessions_->watch("fence", [&](const SessionState& state) { fence.put(inWords(state)); });
    EXPECT_EQ(fence.next(), "fence active");
    logind_->setActive("fence", false);
    EXPECT_EQ(fence.next(), "fence inactive");
    sessions_->unwatch(id);
    bus_.run([] {});
    EXPECT_EQ(states_.size(), 0U);
  }
  std::string ownName() {
    std::string name;
    bus_.run([&] {
      const char* unique = nullptr;
      sd_bus_get_unique_name(bus_.connection(), &unique);
      name = unique;
    });
    return name;
  }

  Inbox<SessionState> states_;  // outlives whoever reports to it
  PrivateBus daemon_;
  FileDescriptor changes_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  SystemBus bus_{{.address = daemon_.address(), .firstBreak = 1ms, .longestBreak = 10ms}};
  std::unique_ptr<MockLogind> logind_ = std::make_unique<MockLogind>(daemon_.address());
  std::unique_ptr<LoginSessions> sessions_;
};

TEST_F(Sessions, AreToldAsTheyAre) {
  logind_->set("c1", {.user = 1001, .isLocked = true, .isRemote = true});
  watch("c1");
  const SessionState state = states_.next();
  EXPECT_EQ(inWords(state), "c1 active locked remote");
  EXPECT_EQ(state.user, 1001U);
  EXPECT_FALSE(state.isInFront());
  watch("3");
  const SessionState other = states_.next();
  EXPECT_EQ(inWords(other), "3 active");
  EXPECT_TRUE(other.isInFront());
}

TEST_F(Sessions, AChangeIsToldOnce) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->setActive("3", false);
  EXPECT_EQ(next(), "3 inactive");
  logind_->setActive("3", true);
  EXPECT_EQ(next(), "3 active");
  logind_->setLocked("3", true);
  EXPECT_EQ(next(), "3 active locked");
  logind_->setLocked("3", false);
  EXPECT_EQ(next(), "3 active");
  expectNoMoreChanges();
}

TEST_F(Sessions, NothingIsToldTwice) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->setActive("3", true);
  logind_->setLocked("3", false);
  expectNoMoreChanges();
}

TEST_F(Sessions, AClosingSessionIsNotActive) {
  logind_->set("3", {.state = "closing", .isActive = true});
  watch("3");
  EXPECT_EQ(next(), "3 inactive");
}

TEST_F(Sessions, AnEndIsToldAndFinal) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->remove("3");
  const SessionState state = states_.next();
  EXPECT_TRUE(state.hasEnded);
  EXPECT_FALSE(state.isInFront());
  EXPECT_EQ(state.user, 1000U);
  logind_->set("3", {});
  logind_->setActive("3", true);
  expectNoMoreChanges();
}

TEST_F(Sessions, ThatDoNotExistHaveEnded) {
  watch("17");
  EXPECT_EQ(next(), "17 ended");
  watch("");
  EXPECT_EQ(next(), " ended");
  watch("../3\n");
  EXPECT_EQ(next(), "../3\n ended");
  expectNoMoreChanges();
}

TEST_F(Sessions, AnIncompleteDescriptionIsAnEnd) {
  logind_->set("3", {.lacksState = true});
  watch("3");
  EXPECT_EQ(next(), "3 ended");
}

TEST_F(Sessions, WithoutAnAnswerTheyHaveEnded) {
  connect(10ms);
  logind_->set("3", {.isMute = true});
  watch("3");
  EXPECT_EQ(next(), "3 ended");
}

/// Whatever else logind does meanwhile: delivery stops with the signal, not with the next answer.
TEST_F(Sessions, BadNewsNeedNoAnswer) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->set("3", {.isMute = true});
  logind_->signalActive("3", false);
  EXPECT_EQ(next(), "3 inactive");
}

TEST_F(Sessions, GoodNewsNeedConfirmation) {
  logind_->set("3", {.state = "online", .isActive = false});
  watch("3");
  EXPECT_EQ(next(), "3 inactive");
  logind_->signalActive("3", true);
  expectNoMoreChanges();
}

TEST_F(Sessions, AChangeWithoutASignalIsFoundInTheFiles) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->set("3", {.state = "closing"});
  const std::uint64_t one = 1;
  ASSERT_EQ(::write(changes_.get(), &one, sizeof one), 8);
  EXPECT_EQ(next(), "3 inactive");
}

TEST_F(Sessions, OnlyLogindsOwnSignalsCount) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  const std::size_t asked = logind_->asked();
  MockLogind impostor(daemon_.address(), MockLogind::Impostor{});
  const std::string name = ownName();
  for (const char* destination : {static_cast<const char*>(nullptr), name.c_str()}) {
    impostor.signalActive("3", false, destination);
    impostor.signalRemoved("3", destination);
  }
  // The daemon passes on what one sender sends in order, so its own end comes last.
  Inbox<int> done;
  bus_.run([&] {
    sd_bus_slot* slot = nullptr;
    sd_bus_add_match(
        bus_.connection(), &slot, "type='signal',member='Done'",
        [](sd_bus_message*, void* inbox, sd_bus_error*) {
          static_cast<Inbox<int>*>(inbox)->put(1);
          return 0;
        },
        &done);
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
  });
  impostor.signalDone(name.c_str());
  done.next();
  EXPECT_EQ(states_.size(), 0U);
  EXPECT_EQ(logind_->asked(), asked);
  logind_->setActive("3", false);
  EXPECT_EQ(next(), "3 inactive");
}

TEST_F(Sessions, EndWithLogind) {
  logind_->set("4", {});
  watch("3");
  EXPECT_EQ(next(), "3 active");
  watch("4");
  EXPECT_EQ(next(), "4 active");
  logind_.reset();
  EXPECT_EQ(next(), "3 ended");
  EXPECT_EQ(next(), "4 ended");
  logind_ = std::make_unique<MockLogind>(daemon_.address());
  logind_->set("3", {});
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->setLocked("3", true);
  EXPECT_EQ(next(), "3 active locked");
  expectNoMoreChanges();
}

TEST_F(Sessions, EndWithTheBus) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  daemon_.stop();
  EXPECT_EQ(next(), "3 ended");
  watch("3");
  EXPECT_EQ(next(), "3 ended");

  daemon_.start();
  testsupport::waitForConnection(bus_);
  logind_ = std::make_unique<MockLogind>(daemon_.address());
  logind_->set("3", {});
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->setActive("3", false);
  EXPECT_EQ(next(), "3 inactive");
}

TEST_F(Sessions, HaveAsManyWatchersAsOneLikes) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  const auto second = watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->setLocked("3", true);
  EXPECT_EQ(next(), "3 active locked");
  EXPECT_EQ(next(), "3 active locked");
  sessions_->unwatch(second);
  bus_.run([] {});  // until it is no longer watched
  logind_->setLocked("3", false);
  EXPECT_EQ(next(), "3 active");
  expectNoMoreChanges();
}

TEST_F(Sessions, AWatcherMayWatchAndUnwatchWhenItIsTold) {
  std::optional<LoginSessions::WatchID> own;
  own = sessions_->watch("3", [&](const SessionState& state) {
    states_.put(state);
    if (!state.isLocked) return;
    sessions_->unwatch(*own);
    watch("3");
  });
  EXPECT_EQ(next(), "3 active");
  logind_->setLocked("3", true);
  EXPECT_EQ(next(), "3 active locked");
  EXPECT_EQ(next(), "3 active locked");
  logind_->setLocked("3", false);
  EXPECT_EQ(next(), "3 active");
  expectNoMoreChanges();
}

TEST_F(Sessions, AWatcherMayWatchAgainAtTheEnd) {
  sessions_->watch("3", [&](const SessionState& state) {
    states_.put(state);
    if (state.hasEnded) watch("3");
  });
  EXPECT_EQ(next(), "3 active");
  logind_->set("3", {.isLocked = true});
  logind_->signalRemoved("3");
  EXPECT_EQ(next(), "3 ended");
  EXPECT_EQ(next(), "3 active locked");
}

TEST_F(Sessions, AWatcherMayEndAllWatchingWhenItIsTold) {
  sessions_->watch("3", [&](const SessionState& state) {
    states_.put(state);
    if (state.isLocked) sessions_.reset();
  });
  EXPECT_EQ(next(), "3 active");
  watch("3");
  EXPECT_EQ(next(), "3 active");
  logind_->setLocked("3", true);
  EXPECT_EQ(next(), "3 active locked");
  bus_.run([] {});
  connect();
  expectNoMoreChanges();
}

TEST_F(Sessions, AnUnwatchedOneIsNotAskedFor) {
  const auto id = watch("3");
  EXPECT_EQ(next(), "3 active");
  sessions_->unwatch(id);
  bus_.run([] {});  // it has heard of that
  const std::size_t asked = logind_->asked();
  logind_->setActive("3", false);
  logind_->set("4", {});
  watch("4");
  EXPECT_EQ(next(), "4 active");
  EXPECT_EQ(logind_->asked(), asked + 1);
  expectNoMoreChanges();
}

TEST_F(Sessions, TheEndOfTheWatcherIsQuiet) {
  watch("3");
  EXPECT_EQ(next(), "3 active");
  sessions_.reset();
  logind_->setActive("3", false);
  connect();
  expectNoMoreChanges();
}

TEST_F(Sessions, OfAProcessAreLookedUp) {
  OtherProcess process;
  std::string whyNot;
  const auto peer = PeerProcess::ofSocket(process.socket(), whyNot);
  ASSERT_TRUE(peer) << whyNot;
  const pid_t number = process.processID();
  LoginSessions sessions(bus_, {.lookup = {.sessionOfProcess =
                                               [number](pid_t asked) {
                                                 return asked == number
                                                            ? std::optional<std::string>("7")
                                                            : std::nullopt;
                                               },
                                           .ownerOfProcess = [](pid_t) { return std::nullopt; },
                                           .displayOfUser = [](uid_t) { return std::nullopt; }},
                                .changes = changes_.get()});
  EXPECT_EQ(sessions.sessionOf(*peer), "7");
  process.end();
  EXPECT_EQ(sessions.sessionOf(*peer), std::nullopt);
}

}  // namespace
