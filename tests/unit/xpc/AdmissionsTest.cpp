// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/Admissions.h"

#include <gtest/gtest.h>

#include "platform/xpc/ConnectionCore.h"

using namespace platform;
using namespace platform::xpc;

namespace {

constexpr uid_t kOne = 1001;
constexpr uid_t kOther = 1002;

class AdmissionsTest : public ::testing::Test {
 protected:
  AdmissionsTest() {
    limits_.withoutHelloOfUser = 2;
    limits_.connectionsOfUser = 3;
    limits_.connections = 5;
    limits_.unsentBytesOfUser = 100;
    limits_.unsentBytes = 150;
    admissions_ = std::make_shared<Admissions>(limits_);
  }
  /// Admits a connection and returns its number; -1: refused. `ended` gets the number of the one
  /// that had to make room, or -1.
  int admit(uid_t user, int* ended = nullptr) {
    cores_.push_back(ConnectionCore::toService("any"));
    auto answer = admissions_->admit(user, cores_.back());
    const auto went = std::find(cores_.begin(), cores_.end(), answer.ended.lock());
    if (ended != nullptr)
      *ended = went == cores_.end() ? -1 : static_cast<int>(went - cores_.begin());
    places_.push_back(std::move(answer.place));
    refusal_ = answer.refusal;
    return places_.back() ? static_cast<int>(places_.size()) - 1 : -1;
  }
  int admitSpeaking(uid_t user) {
    const int number = admit(user);
    if (number >= 0) places_[static_cast<std::size_t>(number)]->saidHello();
    return number;
  }

  NSXPCListenerLimits limits_;
  std::shared_ptr<Admissions> admissions_;
  std::vector<std::shared_ptr<ConnectionCore>> cores_;
  std::vector<std::unique_ptr<Admissions::Place>> places_;
  std::string refusal_;
};

/// Each is a promise: to honest clients, that they are not refused, and to the machine, that no
/// client takes more.
TEST(Admissions, DefaultLimits) {
  const NSXPCListenerLimits limits;
  EXPECT_EQ(limits.helloWithin, std::chrono::seconds(5));
  EXPECT_EQ(limits.withoutHelloOfUser, 32U);
  EXPECT_EQ(limits.connectionsOfUser, 192U);
  EXPECT_EQ(limits.connections, 256U);
  EXPECT_EQ(limits.unsentBytesOfUser, 32U << 20);
  EXPECT_EQ(limits.unsentBytes, 128U << 20);
}

}  // namespace

TEST_F(AdmissionsTest, OfSilentConnectionsTheSameUsersOldestGoes) {
  int ended = -1;
  const int others = admit(kOther);
  const int first = admit(kOne);
  const int second = admit(kOne, &ended);
  EXPECT_EQ(ended, -1);
  admit(kOne, &ended);
  EXPECT_EQ(ended, first);
  admit(kOne, &ended);
  EXPECT_EQ(ended, second);
  EXPECT_GE(others, 0);
}

TEST_F(AdmissionsTest, WhoHasSpokenIsNotEndedForAnother) {
  for (int i = 0; i < 3; ++i) EXPECT_GE(admitSpeaking(kOne), 0);
  int ended = -1;
  EXPECT_EQ(admit(kOne, &ended), -1);
  EXPECT_EQ(ended, -1);
  EXPECT_EQ(refusal_, "its user has too many connections");
  EXPECT_EQ(admit(kOne), -1);
  EXPECT_EQ(refusal_, "");  // said only once
  EXPECT_GE(admit(kOther), 0);
  places_[0].reset();
  EXPECT_GE(admitSpeaking(kOne), 0);
  EXPECT_EQ(admit(kOne), -1);
  EXPECT_NE(refusal_, "");
}

TEST_F(AdmissionsTest, AUserAtTheLimitLosesASilentConnectionForTheNext) {
  EXPECT_GE(admitSpeaking(kOne), 0);
  EXPECT_GE(admitSpeaking(kOne), 0);
  const int silent = admit(kOne);
  int ended = -1;
  EXPECT_GE(admit(kOne, &ended), 0);
  EXPECT_EQ(ended, silent);
}

TEST_F(AdmissionsTest, WhereAllPlacesAreTakenAnybodysSilentConnectionGoesElseTheNewOne) {
  const int silent = admit(kOther);
  for (int i = 0; i < 2; ++i) EXPECT_GE(admitSpeaking(kOther), 0);
  for (int i = 0; i < 2; ++i) EXPECT_GE(admitSpeaking(kOne), 0);
  int ended = -1;
  const int last = admit(kOne, &ended);
  EXPECT_EQ(ended, silent);
  places_[static_cast<std::size_t>(last)]->saidHello();
  EXPECT_EQ(admit(1003), -1);
  EXPECT_EQ(refusal_, "there are too many connections");
}

TEST_F(AdmissionsTest, UnsentBytesAreBoundedForAUserAndForAll) {
  const auto& mine = places_[static_cast<std::size_t>(admit(kOne))]->unsent();
  const auto& mineToo = places_[static_cast<std::size_t>(admit(kOne))]->unsent();
  const auto& others = places_[static_cast<std::size_t>(admit(kOther))]->unsent();
  EXPECT_EQ(mine, mineToo);
  EXPECT_TRUE(mine->allows(100));
  EXPECT_FALSE(mine->allows(101));
  mine->take(90);
  EXPECT_TRUE(mineToo->allows(10));
  EXPECT_FALSE(mineToo->allows(11));
  EXPECT_TRUE(others->allows(60));
  EXPECT_FALSE(others->allows(61));
  mine->giveBack(90);
  EXPECT_TRUE(others->allows(100));
}
