// SPDX-License-Identifier: Apache-2.0

// What is asked of the computer once, and what again.
#include "router/hidraw/RememberedTree.h"

#include <gmock/gmock.h>

#include "ScriptedComputer.h"
#include "router/directory/DescribedDevices.h"
#include "router/hidraw/HidrawSource.h"

namespace {

using namespace hidrawtest;  // NOLINT: the fixture of this program only
using router::DeviceError;
using router::HidrawSource;
using router::HidrawSystem;
using router::RememberedTree;
using testing::SizeIs;

/// Counts the questions that reach the computer, and the devices that come as answers to one.
class CountingTree final : public router::DeviceTree {
 public:
  explicit CountingTree(std::shared_ptr<const ScriptedTree> tree) : tree_(std::move(tree)) {}

  [[nodiscard]] std::size_t take() const { return std::exchange(questions_, 0); }

  [[nodiscard]] std::vector<SystemDevice> initialized(const std::string& subsystem) const override {
    return counted(tree_->initialized(subsystem));
  }
  [[nodiscard]] std::vector<SystemDevice> below(const std::string& path,
                                                const std::string& subsystem) const override {
    return counted(tree_->below(path, subsystem));
  }
  [[nodiscard]] std::optional<SystemDevice> parentOf(const std::string& path) const override {
    return ++questions_, tree_->parentOf(path);
  }
  [[nodiscard]] std::optional<SystemDevice> ancestorOf(const std::string& path,
                                                       const std::string& subsystem,
                                                       const std::string& type) const override {
    return ++questions_, tree_->ancestorOf(path, subsystem, type);
  }
  [[nodiscard]] std::optional<SystemDevice> withNumber(dev_t number) const override {
    return ++questions_, tree_->withNumber(number);
  }
  [[nodiscard]] std::optional<std::string> attribute(const std::string& path,
                                                     const std::string& name) const override {
    return ++questions_, tree_->attribute(path, name);
  }
  [[nodiscard]] std::optional<Bytes> reportDescriptor(const std::string& path) const override {
    return ++questions_, tree_->reportDescriptor(path);
  }

 private:
  [[nodiscard]] std::vector<SystemDevice> counted(std::vector<SystemDevice> devices) const {
    questions_ += 1 + devices.size();
    return devices;
  }

  const std::shared_ptr<const ScriptedTree> tree_;
  mutable std::size_t questions_ = 0;
};

class RememberedTreeTest : public ScriptedComputer {
 protected:
  /// Devices of one model that a program feeds, which may all be parts of one.
  void addFed(std::size_t count) {
    tree_->add("/sys/devices/virtual/misc/uhid", "misc");
    for (std::size_t i = 0; i < count; ++i) {
      const std::string number = std::to_string(1000 + i);
      const std::string path = "/sys/devices/virtual/misc/uhid/0003:1209:0002." + number;
      tree_->add(path, "hid").properties = {{"HID_NAME", "A Dial"}};
      tree_->descriptors[path] = descriptor_;
      addHidraw(path + "/hidraw/hidraw" + number, static_cast<dev_t>(0xf710 + i));
      addEvent(path + "/input/input" + number, "/dev/input/event" + number,
               static_cast<dev_t>(0x0e00 + i));
    }
  }
  /// How many questions it takes to classify the devices that there are.
  std::size_t questionsToClassifyAll() {
    const HidrawSource source({counting_, nodes_});
    const auto remembering = source.remembering();
    std::vector<std::string> problems;
    const auto devices = source.list(&problems);
    static_cast<void>(counting_->take());
    for (const auto& device : devices)
      EXPECT_TRUE(remembering->factsOf(device.registryEntryID).has_value()) << device.name;
    return counting_->take();
  }

  /// The same for their descriptions, as the device directory tells them.
  std::size_t questionsToDescribeAll(std::size_t count) {
    router::DeviceSources sources;
    sources.push_back(std::make_unique<HidrawSource>(HidrawSystem{counting_, nodes_}));
    router::RoutedDevices devices(std::make_shared<const router::DeviceSources>(std::move(sources)),
                                  10, [](std::string_view) {});
    EXPECT_THAT(router::describedDevices(devices, nullptr), SizeIs(count));
    return counting_->take();
  }

  const std::shared_ptr<CountingTree> counting_ = std::make_shared<CountingTree>(tree_);
  const RememberedTree remembered_{counting_};
};

TEST_F(RememberedTreeTest, AsksForEachThingOnceAndAnswersAsTheComputerDid) {
  const std::string hidraw = std::string(kHid) + "/hidraw/hidraw3";
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(remembered_.initialized("hidraw"), SizeIs(1));
    EXPECT_THAT(remembered_.initialized("usb"), SizeIs(2));
    EXPECT_THAT(remembered_.below(kHid, "input"), SizeIs(2));
    EXPECT_THAT(remembered_.below(kUsb, "hid"), SizeIs(1));
    EXPECT_EQ(remembered_.parentOf(hidraw)->path, kHid);
    EXPECT_EQ(remembered_.ancestorOf(hidraw, "usb", "usb_interface")->path, kInterface);
    EXPECT_EQ(remembered_.ancestorOf(hidraw, "usb", "usb_device")->path, kUsb);
    EXPECT_EQ(remembered_.attribute(kInterface, "bInterfaceClass"), "03");
    EXPECT_FALSE(remembered_.attribute(kInterface, "nothing"));
    EXPECT_EQ(remembered_.reportDescriptor(kHid), descriptor_);
  }
  EXPECT_EQ(counting_->take(), 10U + 6U);
}

TEST_F(RememberedTreeTest, WhatIsRememberedDoesNotChange) {
  EXPECT_THAT(remembered_.initialized("hidraw"), SizeIs(1));
  tree_->remove(kHid);
  EXPECT_THAT(remembered_.initialized("hidraw"), SizeIs(1));
  EXPECT_THAT(RememberedTree(tree_).initialized("hidraw"), SizeIs(0));
}

TEST_F(RememberedTreeTest, TheOwnerOfANumberIsAskedForAgain) {
  EXPECT_TRUE(remembered_.withNumber(kHidrawNumber).has_value());
  tree_->remove(kHid);
  EXPECT_FALSE(remembered_.withNumber(kHidrawNumber).has_value());
}

TEST_F(RememberedTreeTest, WhatHasFailedIsAskedAgain) {
  tree_->isBroken = true;
  EXPECT_THROW(static_cast<void>(remembered_.initialized("hidraw")), DeviceError);
  tree_->isBroken = false;
  EXPECT_THAT(remembered_.initialized("hidraw"), SizeIs(1));
}

TEST_F(RememberedTreeTest, ClassifyingTwiceAsManyDevicesTakesTwiceAsManyQuestions) {
  addFed(10);
  const std::size_t ofTen = questionsToClassifyAll();
  addFed(20);
  EXPECT_LE(questionsToClassifyAll(), 2 * ofTen);
}

TEST_F(RememberedTreeTest, DescribingTwiceAsManyDevicesTakesTwiceAsManyQuestions) {
  addFed(10);
  const std::size_t ofTen = questionsToDescribeAll(1 + 10);
  addFed(20);
  EXPECT_LE(questionsToDescribeAll(1 + 20), 2 * ofTen);
}

}  // namespace
