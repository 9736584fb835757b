// SPDX-License-Identifier: Apache-2.0

// Listing and opening, on a made-up computer.
#include "router/hidraw/HidrawSource.h"

#include <gmock/gmock.h>

#include "ScriptedComputer.h"
#include "router/hidraw/HidFacts.h"

namespace {

using namespace hidrawtest;  // NOLINT: the fixture of this program only
using router::DeviceError;
using router::HidrawSource;
using router::OpenDevice;
using testing::ElementsAre;
using testing::IsEmpty;

class HidrawSourceTest : public ScriptedComputer {
 protected:
  std::vector<router::DeviceDescription> list() {
    problems_.clear();
    return source_.list(&problems_);
  }
  [[nodiscard]] DeviceError refusal() const {
    return errorOf([this] { return source_.open(kID); });
  }
  SystemDevice& hidraw() { return tree_->at(kHidraw); }

  static constexpr const char* kHidraw =
      "/sys/devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.0007/hidraw/hidraw3";
  const HidrawSource source_{system_};
  std::vector<std::string> problems_;
};

TEST_F(HidrawSourceTest, DescribesADeviceAsTheKernelDoes) {
  EXPECT_THAT(list(),
              ElementsAre(router::DeviceDescription{kID, "A Gamepad", 3, 0x46d, 0xc216, "hidraw3",
                                                    "usb-0000:00:14.0-2/input0", "SN 12", 0}));
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_THAT(nodes_->openNodes(), IsEmpty()) << "listing opens nothing";
}

TEST_F(HidrawSourceTest, ADeviceIsListedOnceItCanBeOpened) {
  hidraw().age = std::chrono::milliseconds(3);
  nodes_->nodes["/dev/hidraw3"].openError = EACCES;
  EXPECT_THAT(list(), IsEmpty()) << "udev has yet to give the right";
  EXPECT_THAT(problems_, IsEmpty());
  nodes_->nodes["/dev/hidraw3"].openError = 0;
  EXPECT_EQ(list().size(), 1U);
}

TEST_F(HidrawSourceTest, ADeviceThatCannotBeOpenedIsListedAfterASecond) {
  nodes_->nodes["/dev/hidraw3"].openError = EACCES;
  hidraw().age = std::chrono::microseconds(999'999);
  EXPECT_THAT(list(), IsEmpty());
  hidraw().age = std::chrono::seconds(1);
  EXPECT_EQ(list().size(), 1U);
}

TEST_F(HidrawSourceTest, WhoOnlyDescribesDevicesListsEachAtOnce) {
  nodes_->nodes["/dev/hidraw3"].openError = EACCES;
  hidraw().age = std::chrono::milliseconds(0);
  const HidrawSource describing(system_, std::chrono::milliseconds(0));
  EXPECT_EQ(describing.list(&problems_).size(), 1U);
  EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(HidrawSourceTest, WhatADeviceDoesNotSayIsLeftOpen) {
  tree_->at(kHid).properties.clear();
  tree_->remove(kInterface);
  tree_->add(kHid, "hid");
  addHidraw(kHidraw, kHidrawNumber);
  EXPECT_THAT(list(), ElementsAre(router::DeviceDescription{kID, "", 3, 0x46d, 0xc216, "hidraw3",
                                                            "", "", std::nullopt}));
}

TEST_F(HidrawSourceTest, AnInterfaceIsCountedInHexadecimals) {
  tree_->attributes[kInterface]["bInterfaceNumber"] = "1f";
  EXPECT_EQ(list().at(0).interface, 0x1fU);
  tree_->attributes[kInterface]["bInterfaceNumber"] = "?";
  EXPECT_EQ(list().at(0).interface, std::nullopt);
}

TEST_F(HidrawSourceTest, TextsOfTheDevicesOwnAreMadePrintableAndShort) {
  auto& properties = tree_->at(kHid).properties;
  for (const char* name : {"HID_NAME", "HID_UNIQ", "HID_PHYS"})
    properties[name] = "\x1b[2J" + std::string(1000, 'x');
  const auto device = list().at(0);
  const std::string expected = "\\x1b[2J" + std::string(123, 'x') + "\u2026";
  EXPECT_EQ(device.name, expected);
  EXPECT_EQ(device.unique, expected);
  EXPECT_EQ(device.physicalPath, expected);
}

TEST_F(HidrawSourceTest, WhatUdevHasNotFinishedIsNotThereYet) {
  hidraw().isInitialized = false;
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_EQ(source_.open(kID), nullptr);
  EXPECT_FALSE(source_.factsOf(kID));
}

TEST_F(HidrawSourceTest, ADeviceWithoutAnIDIsNotListedButReported) {
  const std::string odd = "/sys/devices/virtual/misc/uhid/0003:046d:C216.0007";
  tree_->add(odd, "hid");
  addHidraw(odd + "/hidraw/hidraw4", 9);
  tree_->descriptors[odd] = descriptor_;
  EXPECT_EQ(list().size(), 1U);
  EXPECT_THAT(
      problems_,
      ElementsAre("hidraw4: the HID device above it has the name \"0003:046d:C216.0007\", of "
                  "which no registry entry ID can be made; it is not listed"));
}

TEST_F(HidrawSourceTest, ADeviceWithoutAReportDescriptorIsNotListedButReported) {
  tree_->descriptors.clear();
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_,
              ElementsAre("hidraw3: its report descriptor cannot be read; it is not listed"));
  EXPECT_FALSE(source_.factsOf(kID));
}

TEST_F(HidrawSourceTest, ADeviceThatIsBeingRemovedIsLeftOutInSilence) {
  addHidraw("/sys/devices/virtual/misc/uhid/hidraw/hidraw5", 10);
  EXPECT_EQ(list().size(), 1U);
  EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(HidrawSourceTest, ADecisionThatMeansNothingIsReportedAndTheDeviceListed) {
  hidraw().properties["WLHID_CLASS"] = "harmless";
  EXPECT_EQ(list().size(), 1U);
  EXPECT_THAT(problems_,
              ElementsAre(testing::StartsWith("hidraw3: the udev property WLHID_CLASS")));
}

TEST_F(HidrawSourceTest, WhatCannotBeListedAtAllIsAProblem) {
  tree_->isBroken = true;
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, ElementsAre("the devices cannot be listed"));
  EXPECT_STREQ(refusal().what(), "the devices cannot be listed");
}

TEST_F(HidrawSourceTest, FactsAreThoseOfTheDevice) {
  hidraw().properties["WLHID_CLASS"] = "ordinary";
  const auto facts = source_.factsOf(kID);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->reportDescriptor, descriptor_);
  EXPECT_EQ(facts->decided, router::DeviceClass::Ordinary);
  EXPECT_FALSE(source_.factsOf(kID + 1));
}

TEST_F(HidrawSourceTest, OpensADeviceByItsID) {
  const auto device = source_.open(kID);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->reportDescriptor(), descriptor_);
  EXPECT_FALSE(device->waitsForReaders());
  EXPECT_THAT(nodes_->openNodes(), ElementsAre("/dev/hidraw3"));
  EXPECT_THAT(nodes_->grabbed(), IsEmpty());
  EXPECT_EQ(source_.open(kID + 1), nullptr);
}

TEST_F(HidrawSourceTest, WithoutTheRightItSaysWhoGivesIt) {
  for (const int error : {EACCES, EPERM}) {
    nodes_->nodes["/dev/hidraw3"].openError = error;
    const std::error_code code(error, std::generic_category());
    EXPECT_EQ(refusal().code(), code);
    EXPECT_EQ(refusal().what(), "/dev/hidraw3 cannot be opened: " + code.message() +
                                    "; a udev rule has to give the router's user the right to read "
                                    "it");
  }
}

TEST_F(HidrawSourceTest, WhatHasJustBeenRemovedIsNoLongerThere) {
  for (const int error : {ENOENT, ENODEV, ENXIO}) {
    nodes_->nodes["/dev/hidraw3"].openError = error;
    EXPECT_EQ(refusal().code(), std::errc::no_such_device);
    EXPECT_STREQ(refusal().what(), "/dev/hidraw3 is no longer there");
  }
}

TEST_F(HidrawSourceTest, AnotherFailureIsToldAsItIs) {
  nodes_->nodes["/dev/hidraw3"].openError = EMFILE;
  EXPECT_EQ(refusal().code(), std::errc::too_many_files_open);
  EXPECT_STREQ(refusal().what(), "/dev/hidraw3 cannot be opened: Too many open files");
}

TEST_F(HidrawSourceTest, AFileInPlaceOfTheNodeIsRefused) {
  nodes_->nodes["/dev/hidraw3"].number.reset();
  EXPECT_STREQ(refusal().what(), "/dev/hidraw3 is not a device node");
  EXPECT_THAT(nodes_->openNodes(), IsEmpty());
}

TEST_F(HidrawSourceTest, AnotherDevicesNodeInItsPlaceIsRefused) {
  nodes_->nodes["/dev/hidraw3"].number = kEventNumber;
  EXPECT_STREQ(refusal().what(),
               "/dev/hidraw3 is the node of another device; it has just been replaced");
  EXPECT_THAT(nodes_->openNodes(), IsEmpty());
}

/// Between the listing and the opening, the device is removed and another one gets its number.
class ReplacedTree final : public router::DeviceTree {
 public:
  ReplacedTree(std::shared_ptr<ScriptedTree> before, std::shared_ptr<ScriptedTree> after)
      : before_(std::move(before)), after_(std::move(after)) {}
  std::vector<SystemDevice> initialized(const std::string& subsystem) const override {
    return before_->initialized(subsystem);
  }
  std::vector<SystemDevice> below(const std::string& path,
                                  const std::string& subsystem) const override {
    return before_->below(path, subsystem);
  }
  std::optional<SystemDevice> parentOf(const std::string& path) const override {
    return before_->parentOf(path);
  }
  std::optional<SystemDevice> ancestorOf(const std::string& path, const std::string& subsystem,
                                         const std::string& type) const override {
    return (isReplaced_ ? after_ : before_)->ancestorOf(path, subsystem, type);
  }
  std::optional<SystemDevice> withNumber(dev_t number) const override {
    isReplaced_ = true;
    return after_->withNumber(number);
  }
  std::optional<std::string> attribute(const std::string& path,
                                       const std::string& name) const override {
    return before_->attribute(path, name);
  }
  std::optional<Bytes> reportDescriptor(const std::string& path) const override {
    return before_->reportDescriptor(path);
  }

 private:
  const std::shared_ptr<ScriptedTree> before_;
  const std::shared_ptr<ScriptedTree> after_;
  mutable bool isReplaced_ = false;
};

class ReplacedDevice : public HidrawSourceTest {
 protected:
  std::string refusalAfter() {
    const HidrawSource source({std::make_shared<ReplacedTree>(tree_, after_), nodes_});
    return errorOf([&] { return source.open(kID); }).what();
  }
  const std::shared_ptr<ScriptedTree> after_ = std::make_shared<ScriptedTree>();
  const std::string kReplaced =
      "/dev/hidraw3 is the node of another device; it has just been replaced";
};

TEST_F(ReplacedDevice, IsNotTakenForItsPredecessor) {
  const std::string next = "/sys/devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.0008";
  after_->add(next, "hid");
  after_->addNode(next + "/hidraw/hidraw3", "hidraw", "/dev/hidraw3", kHidrawNumber);
  EXPECT_EQ(refusalAfter(), kReplaced);
}

TEST_F(ReplacedDevice, OfAnotherKindIsNotTakenForItEither) {
  after_->add(kHid, "hid");
  after_->addNode(std::string(kHid) + "/usbmisc/hiddev0", "usbmisc", "/dev/hidraw3", kHidrawNumber);
  EXPECT_EQ(refusalAfter(), kReplaced);
}

TEST_F(ReplacedDevice, MayHaveNoSuccessor) {
  EXPECT_EQ(refusalAfter(), kReplaced);
}

TEST_F(ReplacedDevice, MayHaveOneThatIsNoHidDevice) {
  after_->addNode("/sys/devices/virtual/x/hidraw3", "hidraw", "/dev/hidraw3", kHidrawNumber);
  EXPECT_EQ(refusalAfter(), kReplaced);
}

TEST_F(HidrawSourceTest, ANodeThatDescribesItselfDifferentlyIsRefused) {
  nodes_->nodes["/dev/hidraw3"].descriptor.push_back(0xc0);
  EXPECT_STREQ(refusal().what(), "/dev/hidraw3 has a report descriptor other than its device's");
  tree_->descriptors.clear();
  EXPECT_STREQ(refusal().what(), "/dev/hidraw3 is no longer there");
}

TEST_F(HidrawSourceTest, ANodeThatDescribesNothingIsRefusedWithTheReason) {
  nodes_->nodes["/dev/hidraw3"].descriptorError = ENODEV;
  EXPECT_EQ(refusal().code(), std::errc::no_such_device);
  EXPECT_STREQ(refusal().what(), "its report descriptor cannot be read: No such device");
}

TEST(DeviceSources, TheSystemsOwnRootHasTheComputersDevicesOnly) {
  const auto sources = router::deviceSources(platform::SystemRoot("/"));
  ASSERT_EQ(sources.size(), 1U);
  EXPECT_NE(dynamic_cast<HidrawSource*>(sources.front().get()), nullptr);
  const auto others = router::deviceSources(platform::SystemRoot("/nowhere"));
  ASSERT_EQ(others.size(), 1U);
  EXPECT_EQ(dynamic_cast<HidrawSource*>(others.front().get()), nullptr);
}

TEST(DeviceSources, TheSystemsOwnRootTakesNoRecordings) {
  const platform::SystemRoot root("/");
  router::ReplayDevice device;
  device.recording = "/nowhere/m.hid";
  EXPECT_STREQ(
      errorOf([&] { return router::addReplayDevice(root, device); }).what(),
      "the system's own root has the computer's devices only; a recording becomes a device "
      "on a root of your own");
  EXPECT_THAT(router::configuredReplayDevices(root), IsEmpty());
  EXPECT_FALSE(router::removeReplayDevice(root, "m"));
}

}  // namespace
