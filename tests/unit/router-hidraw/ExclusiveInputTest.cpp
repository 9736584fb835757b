// SPDX-License-Identifier: Apache-2.0

// All of a device's input is taken, or none.
#include "router/hidraw/ExclusiveInput.h"

#include <gmock/gmock.h>

#include "ScriptedComputer.h"

namespace {

using namespace hidrawtest;  // NOLINT: the fixture of this program only
using router::DeviceError;
using router::ExclusiveInput;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kSecond = "/dev/input/event6";

class ExclusiveInputTest : public ScriptedComputer {
 protected:
  ExclusiveInputTest() { addEvent(std::string(kHid) + "/input/input10", kSecond, kSecondNumber); }
  [[nodiscard]] ExclusiveInput take() const { return {system_, tree_->at(kHid)}; }
  [[nodiscard]] DeviceError refusal() const {
    return errorOf([this] { return take(); });
  }
  static constexpr dev_t kSecondNumber = 0x0d46;
};

TEST_F(ExclusiveInputTest, TakesAllAsLongAsItLives) {
  {
    const ExclusiveInput taken = take();
    EXPECT_THAT(nodes_->grabbed(), ElementsAre("/dev/input/event5", kSecond));
  }
  EXPECT_THAT(nodes_->openNodes(), IsEmpty());
}

TEST_F(ExclusiveInputTest, OnlyEventNodesAreTaken) {
  const std::string input = std::string(kHid) + "/input/input9";
  tree_->addNode(input + "/js0", "input", "/dev/input/js0", 80);
  tree_->addNode(input + "/mouse2", "input", "/dev/input/mouse2", 81);
  tree_->add(input + "/event99", "input");  // has no node
  const ExclusiveInput taken = take();
  EXPECT_THAT(nodes_->openNodes(), ElementsAre("/dev/input/event5", kSecond));
}

TEST_F(ExclusiveInputTest, NothingIsTakenFromDevicesBelowItOrBesideIt) {
  const std::string paired = std::string(kHid) + "/0003:046D:4082.0009";
  tree_->add(paired, "hid");
  addEvent(paired + "/input/input11", "/dev/input/event7", 82);
  addEvent(std::string(kInterface) + "/0003:046D:C216.0008/input/input12", "/dev/input/event8", 83);
  const ExclusiveInput taken = take();
  EXPECT_THAT(nodes_->openNodes(), ElementsAre("/dev/input/event5", kSecond));
}

TEST_F(ExclusiveInputTest, WithoutInputNodesThereIsNothingToTake) {
  tree_->remove(std::string(kHid) + "/input/input9");
  tree_->remove(std::string(kHid) + "/input/input10");
  const ExclusiveInput taken = take();
  EXPECT_THAT(nodes_->openNodes(), IsEmpty());
}

TEST_F(ExclusiveInputTest, WhatAnotherProgramHasTakenIsRefusedAndTheRestGivenBack) {
  nodes_->nodes[kSecond].grabError = EBUSY;
  EXPECT_EQ(refusal().code(), std::errc::device_or_resource_busy);
  EXPECT_STREQ(refusal().what(), "/dev/input/event6 cannot be taken: another program has taken it");
  EXPECT_THAT(nodes_->openNodes(), IsEmpty());
}

TEST_F(ExclusiveInputTest, AnotherFailureIsToldAsItIs) {
  nodes_->nodes[kSecond].grabError = ENODEV;
  EXPECT_EQ(refusal().code(), std::errc::no_such_device);
  EXPECT_STREQ(refusal().what(), "/dev/input/event6 cannot be taken: No such device");
}

TEST_F(ExclusiveInputTest, WhatCannotBeOpenedIsRefusedAndTheRestGivenBack) {
  nodes_->nodes[kSecond].openError = EACCES;
  EXPECT_EQ(refusal().code(), std::errc::permission_denied);
  EXPECT_THAT(nodes_->openNodes(), IsEmpty());
}

TEST_F(ExclusiveInputTest, AnotherDevicesNodeIsNotTaken) {
  nodes_->nodes[kSecond].number = kEventNumber;
  EXPECT_STREQ(refusal().what(),
               "/dev/input/event6 is the node of another device; it has just been replaced");
  EXPECT_THAT(nodes_->openNodes(), IsEmpty());
}

}  // namespace
