// SPDX-License-Identifier: Apache-2.0

#include "platform/system/BusCalls.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Inbox.h"
#include "tests/support/PrivateBus.h"

namespace {

using namespace std::chrono_literals;
using platform::system::BusCalls;
using platform::system::BusMessage;
using platform::system::BusReply;
using platform::system::SystemBus;
using testsupport::Inbox;
using testsupport::PrivateBus;

constexpr auto kLong = 60s;

/// A service that keeps every call until it is told to answer.
class Keeper {
 public:
  explicit Keeper(const std::string& address) : bus_({.address = address}) {
    bus_.run([this] {
      sd_bus_add_object(bus_.connection(), nullptr, "/keeper", &Keeper::receive, this);
      sd_bus_request_name(bus_.connection(), "test.Keeper", 0);
    });
  }
  ~Keeper() {
    bus_.run([this] { kept_.clear(); });
  }

  /// Returns the argument of the next call.
  std::string next() { return arguments_.next(); }
  [[nodiscard]] std::size_t waiting() const { return arguments_.size(); }
  void answerOldest(const char* error = nullptr) {
    bus_.run([&] {
      const auto call = std::move(kept_.front());
      kept_.pop_front();
      if (error != nullptr)
        sd_bus_reply_method_errorf(call.get(), error, "because");
      else
        sd_bus_reply_method_return(call.get(), nullptr);
    });
  }

 private:
  static int receive(sd_bus_message* call, void* keeper, sd_bus_error* /*unused*/) noexcept {
    auto& self = *static_cast<Keeper*>(keeper);
    const char* argument = nullptr;
    sd_bus_message_read(call, "s", &argument);
    self.kept_.emplace_back(sd_bus_message_ref(call));
    self.arguments_.put(argument);
    return 1;
  }

  Inbox<std::string> arguments_;
  std::deque<BusMessage> kept_;
  SystemBus bus_;
};

BusCalls::Compose callTo(const std::string& argument) {
  return [argument](sd_bus* connection) {
    sd_bus_message* made = nullptr;
    sd_bus_message_new_method_call(connection, &made, "test.Keeper", "/keeper", "test.Keeper",
                                   "Keep");
    sd_bus_message_append(made, "s", argument.c_str());
    return BusMessage(made);
  };
}

std::string outcomeOf(const BusReply& reply) {
  if (reply.isLate) return " late";
  return reply.message != nullptr ? " answered" : " failed";
}

class Calls : public testing::Test {
 protected:
  void SetUp() override {
    bus_.run([this] { calls_ = std::make_unique<BusCalls>(bus_, 2); });
  }
  void TearDown() override {
    bus_.run([this] { calls_.reset(); });
  }

  BusCalls::CallID call(const std::string& argument, std::chrono::nanoseconds limit = kLong) {
    BusCalls::CallID id{};
    bus_.run([&] {
      const std::size_t before = answers_.size();
      id = calls_->call(callTo(argument), limit, [this, argument](const BusReply& reply) {
        answers_.put(argument + outcomeOf(reply) + (reply.wasSent ? "" : " unsent"));
        errors_.put(reply.error);
      });
      EXPECT_EQ(answers_.size(), before) << "answered before the call returned";
    });
    return id;
  }

  Inbox<std::string> answers_;  // outlives whoever reports to it
  Inbox<std::string> errors_;
  PrivateBus daemon_;
  SystemBus bus_{{.address = daemon_.address(), .firstBreak = 1ms, .longestBreak = 10ms}};
  Keeper keeper_{daemon_.address()};
  std::unique_ptr<BusCalls> calls_;
};

TEST_F(Calls, AreAnswered) {
  call("a");
  EXPECT_EQ(keeper_.next(), "a");
  keeper_.answerOldest();
  EXPECT_EQ(answers_.next(), "a answered");
}

TEST_F(Calls, AnErrorIsOneLine) {
  call("a");
  keeper_.next();
  keeper_.answerOldest("test.Error.No");
  EXPECT_EQ(answers_.next(), "a failed");
  EXPECT_EQ(errors_.next(), "test.Error.No: because");
}

TEST_F(Calls, WaitForAPlaceInTheWindowInTheirOrder) {
  for (const char* each : {"a", "b", "c", "d"}) call(each);
  EXPECT_EQ(keeper_.next(), "a");
  EXPECT_EQ(keeper_.next(), "b");
  EXPECT_EQ(keeper_.waiting(), 0U);
  keeper_.answerOldest();
  EXPECT_EQ(answers_.next(), "a answered");
  EXPECT_EQ(keeper_.next(), "c");
  EXPECT_EQ(keeper_.waiting(), 0U);
}

TEST_F(Calls, ADroppedOneMakesRoomAndIsNotAnswered) {
  const auto a = call("a");
  call("b");
  const auto c = call("c");
  call("d");
  keeper_.next();
  keeper_.next();
  bool aWasSent = false;
  bool cWasSent = true;
  bus_.run([&] {
    cWasSent = calls_->drop(c);
    aWasSent = calls_->drop(a);
  });
  EXPECT_TRUE(aWasSent);
  EXPECT_FALSE(cWasSent);
  EXPECT_EQ(keeper_.next(), "d");
  keeper_.answerOldest();
  keeper_.answerOldest();
  EXPECT_EQ(answers_.next(), "b answered");
}

TEST_F(Calls, ALateAnswerIsNone) {
  call("a", 5ms);
  EXPECT_EQ(answers_.next(), "a late");
  keeper_.next();
  keeper_.answerOldest();
  call("b");
  keeper_.next();
  keeper_.answerOldest();
  EXPECT_EQ(answers_.next(), "b answered");
}

TEST_F(Calls, TheLimitIncludesTheWait) {
  call("a");
  call("b");
  call("c", 5ms);
  EXPECT_EQ(answers_.next(), "c late unsent");
}

TEST_F(Calls, AllFailOnceWhenTheBusGoes) {
  for (const char* each : {"a", "b", "c"}) call(each);
  keeper_.next();
  keeper_.next();
  daemon_.stop();
  std::vector<std::string> failed{answers_.next(), answers_.next(), answers_.next()};
  std::sort(failed.begin(), failed.end());
  EXPECT_EQ(failed, (std::vector<std::string>{"a failed", "b failed", "c failed unsent"}));
  call("d");
  EXPECT_EQ(answers_.next(), "d failed unsent");
  EXPECT_EQ(answers_.size(), 0U);
}

TEST_F(Calls, AMessageThatCannotBeMadeFails) {
  bus_.run([&] {
    calls_->call([](sd_bus*) { return BusMessage(); }, kLong,
                 [this](const BusReply& reply) { answers_.put(reply.error); });
    EXPECT_EQ(answers_.size(), 0U);
  });
  EXPECT_EQ(answers_.next(), "the message cannot be made");
}

TEST_F(Calls, ToNobodyFail) {
  bus_.run([&] {
    calls_->call(
        [](sd_bus* connection) {
          sd_bus_message* made = nullptr;
          sd_bus_message_new_method_call(connection, &made, "test.Nobody", "/", "test.Nobody", "X");
          return BusMessage(made);
        },
        kLong, [this](const BusReply& reply) { answers_.put(reply.error); });
  });
  EXPECT_TRUE(answers_.next().starts_with("org.freedesktop.DBus.Error.ServiceUnknown: "));
}

}  // namespace
