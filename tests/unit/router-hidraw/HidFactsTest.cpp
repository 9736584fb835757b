// SPDX-License-Identifier: Apache-2.0

// What is found out about a device, and that what cannot be found out is the worse case.
#include "router/hidraw/HidFacts.h"

#include "ScriptedComputer.h"

namespace {

using namespace hidrawtest;  // NOLINT: the fixture of this program only
using router::DeviceClass;

class HidFacts : public ScriptedComputer {
 protected:
  static constexpr const char* kOther = "/sys/devices/pci0000:00/usb1/1-2/1-2:1.1";
  static constexpr const char* kOtherHid =
      "/sys/devices/pci0000:00/usb1/1-2/1-2:1.1/0003:046D:C216.0008";

  [[nodiscard]] router::DeviceFacts facts(const std::string& hid = kHid) {
    const auto found = router::factsOf(*tree_, tree_->at(hid), hidraw_);
    EXPECT_TRUE(found);
    return found.value_or(router::DeviceFacts());
  }
  SystemDevice& event() { return tree_->at(std::string(kHid) + "/input/input9/event5"); }
  SystemDevice hidraw_ = tree_->at(std::string(kHid) + "/hidraw/hidraw3");
};

TEST_F(HidFacts, OfAGamepadNothingSpeaksForAKeyboard) {
  EXPECT_EQ(facts().reportDescriptor, descriptor_);
  EXPECT_FALSE(facts().isBootKeyboard);
  EXPECT_FALSE(facts().hasKeyboardNode);
  EXPECT_FALSE(facts().isBesideKeyboard);
  EXPECT_FALSE(facts().decided);
}

TEST_F(HidFacts, WithoutAReportDescriptorThereAreNone) {
  tree_->descriptors.clear();
  EXPECT_FALSE(router::factsOf(*tree_, tree_->at(kHid), hidraw_));
}

TEST_F(HidFacts, ABootKeyboardIsOneByItsInterface) {
  addInterface(kInterface, "03", "01", "01");
  EXPECT_TRUE(facts().isBootKeyboard);
  EXPECT_FALSE(facts().isBesideKeyboard) << "its own interface is not another one";
  addInterface(kInterface, "03", "01", "02");
  EXPECT_FALSE(facts().isBootKeyboard) << "a boot mouse";
  addInterface(kInterface, "03", "00", "01");
  EXPECT_FALSE(facts().isBootKeyboard) << "no boot interface";
}

TEST_F(HidFacts, AnInterfaceThatCannotBeReadIsABootKeyboard) {
  addInterface(kInterface, "03", "01", "01");
  for (const char* name : {"bInterfaceClass", "bInterfaceSubClass", "bInterfaceProtocol"}) {
    tree_->attributes[kInterface].erase(name);
    EXPECT_TRUE(facts().isBootKeyboard) << name;
  }
}

TEST_F(HidFacts, AKeyboardNodeIsWhatUdevCallsOne) {
  event().properties["ID_INPUT_JOYSTICK"] = "1";
  EXPECT_FALSE(facts().hasKeyboardNode);
  for (const char* name : {"ID_INPUT_KEYBOARD", "ID_INPUT_KEY"}) {
    event().properties = {{name, "1"}};
    EXPECT_TRUE(facts().hasKeyboardNode) << name;
    event().properties = {{name, "0"}};
    EXPECT_FALSE(facts().hasKeyboardNode) << name;
  }
}

TEST_F(HidFacts, AnInputDeviceWithoutANodeCounts) {
  tree_->at(std::string(kHid) + "/input/input9").properties["ID_INPUT_KEY"] = "1";
  EXPECT_TRUE(facts().hasKeyboardNode);
}

TEST_F(HidFacts, ANodeWhoseRulesHaveNotRunIsAKeyboard) {
  event().isInitialized = false;
  EXPECT_TRUE(facts().hasKeyboardNode);
  EXPECT_FALSE(facts().isBesideKeyboard) << "it is its own";
}

TEST_F(HidFacts, WithoutInputNodesThereIsNoKeyboardNode) {
  tree_->remove(std::string(kHid) + "/input/input9");
  EXPECT_FALSE(facts().hasKeyboardNode);
}

TEST_F(HidFacts, AnotherInterfaceIsAKeyboardByItsClass) {
  addInterface(kOther, "03", "01", "01");
  tree_->add(kOtherHid, "hid");
  EXPECT_TRUE(facts().isBesideKeyboard);
  EXPECT_FALSE(facts().isBootKeyboard);
  EXPECT_FALSE(facts().hasKeyboardNode);
  addInterface(kOther, "03", "00", "00");
  EXPECT_FALSE(facts().isBesideKeyboard);
}

TEST_F(HidFacts, AnotherInterfaceThatCannotBeReadIsAKeyboard) {
  addInterface(kOther, "03", "01", "01");
  tree_->add(kOtherHid, "hid");
  tree_->attributes.erase(kOther);
  EXPECT_TRUE(facts().isBesideKeyboard);
}

TEST_F(HidFacts, AnotherInterfaceWithoutADriverIsAKeyboardIfItIsForHid) {
  addInterface(kOther, "03", "00", "00");
  EXPECT_TRUE(facts().isBesideKeyboard);
  addInterface(kOther, "01", "02", "00");  // sound
  EXPECT_FALSE(facts().isBesideKeyboard);
}

TEST_F(HidFacts, AnotherInterfaceIsAKeyboardByItsInputNode) {
  addInterface(kOther, "ff", "5d", "01");  // with a driver that is not for HID
  SystemDevice& event = addEvent(std::string(kOther) + "/input/input10", "/dev/input/event6", 70);
  EXPECT_FALSE(facts().isBesideKeyboard);
  event.properties["ID_INPUT_KEYBOARD"] = "1";
  EXPECT_TRUE(facts().isBesideKeyboard);
  EXPECT_FALSE(facts().hasKeyboardNode);
  event.properties.clear();
  event.isInitialized = false;
  EXPECT_TRUE(facts().isBesideKeyboard);
}

TEST_F(HidFacts, AnotherUsbDeviceDoesNotMatter) {
  const std::string keyboard = "/sys/devices/pci0000:00/usb1/1-20";
  tree_->add(keyboard, "usb", "usb_device");
  addInterface(keyboard + "/1-20:1.0", "03", "01", "01");
  addEvent(keyboard + "/1-20:1.0/0003:046D:C31C.0009/input/input11", "/dev/input/event7", 71)
      .properties["ID_INPUT_KEYBOARD"] = "1";
  EXPECT_FALSE(facts().isBesideKeyboard);
}

TEST_F(HidFacts, WhatIsPairedWithOneReceiverIsBesideEachOther) {
  const std::string mouse = std::string(kHid) + "/0003:046D:4082.0009";
  const std::string keyboard = std::string(kHid) + "/0003:046D:4024.000A";
  tree_->add(mouse, "hid");
  tree_->descriptors[mouse] = descriptor_;
  tree_->add(keyboard, "hid");
  addEvent(keyboard + "/input/input12", "/dev/input/event8", 72).properties["ID_INPUT_KEYBOARD"] =
      "1";
  EXPECT_TRUE(facts(mouse).isBesideKeyboard);
  EXPECT_FALSE(facts(mouse).hasKeyboardNode);
  EXPECT_TRUE(facts().hasKeyboardNode) << "the receiver's own";
}

TEST_F(HidFacts, OnABluetoothConnectionAllIsOneDevice) {
  const std::string connection = "/sys/devices/pci0000:00/usb1/1-7/bluetooth/hci0/hci0:256";
  tree_->add(connection, "bluetooth", "link");
  const std::string pen = connection + "/0005:056A:0360.0003";
  const std::string keyboard = connection + "/0005:056A:0360.0004";
  tree_->add(pen, "hid");
  tree_->descriptors[pen] = descriptor_;
  EXPECT_FALSE(facts(pen).isBesideKeyboard);
  tree_->add(keyboard, "hid");
  addEvent(keyboard + "/input/input12", "/dev/input/event8", 72).properties["ID_INPUT_KEY"] = "1";
  EXPECT_TRUE(facts(pen).isBesideKeyboard);
  EXPECT_FALSE(facts(pen).isBootKeyboard);
}

TEST_F(HidFacts, WithoutAnythingAboveItIsBesideAKeyboard) {
  const std::string lonely = "/sys/lonely/0003:0001:0002.0009";
  tree_->add(lonely, "hid");
  tree_->descriptors[lonely] = descriptor_;
  EXPECT_TRUE(facts(lonely).isBesideKeyboard);
}

/// Devices whose reports come from a program: all have the same parent.
class FedDevices : public HidFacts {
 protected:
  FedDevices() {
    tree_->add("/sys/devices/virtual/misc/uhid", "misc");
    tree_->add(kFed, "hid");
    tree_->descriptors[kFed] = descriptor_;
    tree_->add(kKeyboard, "hid");
    addEvent(std::string(kKeyboard) + "/input/input12", "/dev/input/event8", 72)
        .properties["ID_INPUT_KEYBOARD"] = "1";
    tree_->add(kTwin, "hid");
    addEvent(std::string(kTwin) + "/input/input13", "/dev/input/event9", 73)
        .properties["ID_INPUT_KEYBOARD"] = "1";
  }
  bool isBesideKeyboard(const std::string& own, const std::string& keyboards) {
    tree_->at(kFed).properties["HID_UNIQ"] = own;
    tree_->at(kKeyboard).properties["HID_UNIQ"] = keyboards;
    tree_->at(kTwin).properties["HID_UNIQ"] = "quite another";
    return facts(kFed).isBesideKeyboard;
  }
  static constexpr const char* kFed = "/sys/devices/virtual/misc/uhid/0005:056A:0360.0003";
  static constexpr const char* kKeyboard = "/sys/devices/virtual/misc/uhid/0005:05AC:0220.0004";
  static constexpr const char* kTwin = "/sys/devices/virtual/misc/uhid/0005:056A:0360.0005";
};

TEST_F(FedDevices, AreOneIfTheyHaveTheSameAddress) {
  EXPECT_TRUE(isBesideKeyboard("c8:3f:26:00:00:01", "c8:3f:26:00:00:01"));
  EXPECT_FALSE(isBesideKeyboard("c8:3f:26:00:00:01", "c8:3f:26:00:00:02"));
}

TEST_F(FedDevices, AreOneIfOnlyTheModelTellsAndItIsTheSame) {
  EXPECT_TRUE(isBesideKeyboard("", "c8:3f:26:00:00:02")) << "the twin may be the same device";
  tree_->remove(kTwin);
  tree_->add(kTwin, "hid");  // without a keyboard
  EXPECT_FALSE(isBesideKeyboard("", "c8:3f:26:00:00:02"));
  EXPECT_FALSE(isBesideKeyboard("", ""));
}

TEST_F(HidFacts, TheAdministratorDecidesOnTheHidrawDevice) {
  hidraw_.properties["WLHID_CLASS"] = "ordinary";
  EXPECT_EQ(facts().decided, DeviceClass::Ordinary);
  hidraw_.properties["WLHID_CLASS"] = "sensitive";
  EXPECT_EQ(facts().decided, DeviceClass::Sensitive);
  for (const char* other : {"Ordinary", "ordinary ", "1", ""}) {
    hidraw_.properties["WLHID_CLASS"] = other;
    EXPECT_FALSE(facts().decided) << other;
  }
}

TEST_F(HidFacts, TheHidDeviceCannotDecideForItself) {
  tree_->at(kHid).properties["WLHID_CLASS"] = "ordinary";
  event().properties["WLHID_CLASS"] = "ordinary";
  EXPECT_FALSE(facts().decided);
}

TEST_F(HidFacts, ADecisionThatMeansNothingIsAProblem) {
  std::string problem;
  hidraw_.properties["WLHID_CLASS"] = "ordinary";
  static_cast<void>(router::decidedClassOf(hidraw_, &problem));
  EXPECT_EQ(problem, "");
  hidraw_.properties["WLHID_CLASS"] = "har\x1bmless";
  static_cast<void>(router::decidedClassOf(hidraw_, &problem));
  EXPECT_EQ(problem,
            "hidraw3: the udev property WLHID_CLASS is \"har\\x1bmless\", which is neither "
            "\"ordinary\" nor \"sensitive\"; it has no effect");
}

}  // namespace
