// SPDX-License-Identifier: Apache-2.0

// What the job daemon asks polkit, with a mock of polkit on a bus of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <string>

#include "jobd/PolkitAuthority.h"
#include "tests/support/MockPolkit.h"
#include "tests/support/PrivateBus.h"

namespace {

using jobd::Decision;
using jobd::Right;
using testsupport::MockPolkit;
using Says = MockPolkit::Says;

class Polkit : public testing::Test {
 protected:
  Polkit() { testsupport::waitForConnection(bus_); }

  [[nodiscard]] static jobd::Question question(Right right, const std::string& prompt = "",
                                               pid_t process = ::getpid()) {
    return {{::geteuid(), process}, "com.quillmar.hideventrouter", right, prompt};
  }
  /// The decision about a question that polkit answers like this.
  Decision decision(const jobd::Question& question, MockPolkit::Says says) {
    return decide(question, [&] {
      asked_ = polkit_.next();
      polkit_.answer(asked_, says);
    });
  }
  /// The decision about a question, after `meanwhile`.
  Decision decide(const jobd::Question& question, const std::function<void()>& meanwhile) {
    jobd::EventLoop loop;
    jobd::Mailbox mailbox(loop);
    jobd::PolkitAuthority authority(mailbox, bus_);
    std::optional<Decision> result;
    authority.decide(question, [&](const Decision& decided) {
      result = decided;
      loop.stop();
    });
    meanwhile();
    if (!result) loop.run();
    return result.value();
  }

  testsupport::PrivateBus daemon_;
  MockPolkit polkit_{daemon_.address()};
  platform::system::SystemBus bus_{{.address = daemon_.address()}};
  MockPolkit::Asked asked_;
};

TEST_F(Polkit, IsAskedAboutTheCallerAndTheAction) {
  const auto answer = decision(question(Right::Install, "please"), Says::Yes);
  EXPECT_EQ(answer.kind, Decision::Kind::Yes);
  EXPECT_EQ(asked_.action, "com.quillmar.hideventrouter.install");
  EXPECT_EQ(asked_.processID, static_cast<std::uint32_t>(::getpid()));
  EXPECT_EQ(asked_.user, static_cast<std::int32_t>(::geteuid()));
  EXPECT_EQ(asked_.flags & 1U, 1U) << "a person may be asked";
  EXPECT_THAT(asked_.details.at("polkit.message"), testing::HasSubstr("It says: “please”"));
  EXPECT_THAT(polkit_.complaints(), testing::IsEmpty());
}

TEST_F(Polkit, EachRightIsAnActionOfItsOwn) {
  EXPECT_EQ(decision(question(Right::Remove), Says::No).kind, Decision::Kind::No);
  EXPECT_EQ(asked_.action, "com.quillmar.hideventrouter.remove");
  EXPECT_EQ(decision(question(Right::ReplaceNewer), Says::No).kind, Decision::Kind::No);
  EXPECT_EQ(asked_.action, "com.quillmar.hideventrouter.replace-newer");
}

TEST_F(Polkit, WhatKeptAPersonFromAnsweringIsTold) {
  EXPECT_EQ(decision(question(Right::Install), Says::Dismissed).kind, Decision::Kind::Canceled);
  EXPECT_EQ(decision(question(Right::Install), Says::NeedsPerson).kind,
            Decision::Kind::InteractionNotAllowed);
  EXPECT_EQ(decision(question(Right::Install), Says::Error).kind, Decision::Kind::No);
}

TEST_F(Polkit, ACallerThatTheKernelDoesNotKnowIsANo) {
  EXPECT_EQ(decide(question(Right::Install, "", 0), [] {}).kind, Decision::Kind::No);
  EXPECT_EQ(polkit_.asked(), 0U);
}

TEST_F(Polkit, WithoutABusTheAnswerIsNo) {
  daemon_.stop();
  EXPECT_EQ(decide(question(Right::Install), [] {}).kind, Decision::Kind::No);
}

}  // namespace
