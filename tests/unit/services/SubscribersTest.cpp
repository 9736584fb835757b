// SPDX-License-Identifier: Apache-2.0

#include "platform/services/Subscribers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using platform::Subscribers;

class SubscribersTest : public testing::Test {
 protected:
  std::shared_ptr<void> add(const std::string& name) {
    return all_->add([this, name] { told_ += name; });
  }
  std::string tell() {
    told_.clear();
    all_->tell();
    return told_;
  }

  std::shared_ptr<Subscribers> all_ = std::make_shared<Subscribers>();
  std::string told_;
};

TEST_F(SubscribersTest, AreToldInOrderWhileTheyHoldTheirTokens) {
  auto a = add("a");
  auto b = add("b");
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(tell(), "ab");
  a = nullptr;
  EXPECT_EQ(tell(), "b");
  EXPECT_FALSE(all_->isEmpty());
  b = nullptr;
  EXPECT_TRUE(all_->isEmpty());
}

TEST_F(SubscribersTest, MayCallTheListWhileTheyAreTold) {
  std::shared_ptr<void> later;
  std::shared_ptr<void> self = all_->add([&] {
    later = add("later");
    self = nullptr;
    told_ += "self";
  });
  EXPECT_EQ(tell(), "self") << "whoever comes meanwhile is told next time";
  EXPECT_EQ(tell(), "later");
}

TEST_F(SubscribersTest, ATokenMayOutliveTheList) {
  auto token = add("a");
  all_->clear();
  EXPECT_EQ(tell(), "");
  all_ = nullptr;
  token = nullptr;
}

TEST_F(SubscribersTest, ANoticeIsDroppedWithoutTheLock) {
  struct Asks {
    Subscribers& all;
    ~Asks() { static_cast<void>(all.isEmpty()); }
  };
  auto token = all_->add([asks = std::shared_ptr<Asks>(new Asks{*all_})] {});
  token = nullptr;
  token = all_->add([asks = std::shared_ptr<Asks>(new Asks{*all_})] {});
  all_->clear();
  EXPECT_TRUE(all_->isEmpty());
}

}  // namespace
