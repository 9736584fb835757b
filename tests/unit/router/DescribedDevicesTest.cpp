// SPDX-License-Identifier: Apache-2.0

// One device, of a source that the test makes lose it at the worst moment.
#include "router/directory/DescribedDevices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using router::RoutedDevices;
using router::Usage;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kPen = 0x10007;
constexpr int kMany = 100;

struct Plugged {
  bool isListed = true;
  int listings = 0;
  int unreadable = 0;       // so many times its descriptor cannot be read
  bool goesUnread = false;  // and is not listed afterwards
};

class PluggedSource final : public router::DeviceSource {
 public:
  explicit PluggedSource(Plugged* plugged) : plugged_(plugged) {}
  std::vector<router::DeviceDescription> list(std::vector<std::string>*) const override {
    ++plugged_->listings;
    if (!plugged_->isListed) return {};
    return {{kPen, "Pen", 3, 1, 2, "test"}};
  }
  [[nodiscard]] std::unique_ptr<router::OpenDevice> open(std::uint64_t) const override {
    return nullptr;
  }
  [[nodiscard]] std::optional<std::vector<std::uint8_t>> reportDescriptorOf(
      std::uint64_t id) const override {
    if (id != kPen || plugged_->unreadable == 0)
      return std::vector<std::uint8_t>{0x05, 0x0d, 0x09, 0x02, 0xa1, 0x01, 0xc0};
    --plugged_->unreadable;
    if (plugged_->goesUnread) plugged_->isListed = false;
    return std::nullopt;
  }

 private:
  Plugged* const plugged_;
};

class DescribedDevicesTest : public testing::Test {
 protected:
  static std::shared_ptr<const router::DeviceSources> sources(Plugged* plugged) {
    router::DeviceSources sources;
    sources.push_back(std::make_unique<PluggedSource>(plugged));
    return std::make_shared<const router::DeviceSources>(std::move(sources));
  }

  Plugged plugged_;
  RoutedDevices devices_{sources(&plugged_), 10, [](std::string_view) {}};
};

TEST_F(DescribedDevicesTest, HaveTheirCollections) {
  const auto described = describedDevices(devices_, nullptr);
  ASSERT_EQ(described.size(), 1U);
  EXPECT_EQ(described[0].device.registryEntryID, kPen);
  EXPECT_THAT(described[0].collections, ElementsAre(Usage{0xd, 2}));
  EXPECT_EQ(plugged_.listings, 1) << "nothing is looked at twice";
}

TEST_F(DescribedDevicesTest, OneThatGoesMeanwhileIsLeftOut) {
  plugged_.unreadable = 1;
  plugged_.goesUnread = true;
  EXPECT_THAT(describedDevices(devices_, nullptr), IsEmpty());
}

TEST_F(DescribedDevicesTest, OneThatGoesAndComesBackMeanwhileIsDescribed) {
  plugged_.unreadable = 1;
  const auto described = describedDevices(devices_, nullptr);
  ASSERT_EQ(described.size(), 1U);
  EXPECT_THAT(described[0].collections, ElementsAre(Usage{0xd, 2}));
}

TEST_F(DescribedDevicesTest, OneThatCannotBeReadIsListedWithoutCollections) {
  plugged_.unreadable = kMany;
  const auto described = describedDevices(devices_, nullptr);
  ASSERT_EQ(described.size(), 1U);
  EXPECT_THAT(described[0].collections, IsEmpty());
  EXPECT_EQ(plugged_.listings, 2) << "it is not tried for ever";
}

}  // namespace
