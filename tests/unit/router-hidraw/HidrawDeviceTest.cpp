// SPDX-License-Identifier: Apache-2.0

// Reading: in order, ahead, until the device is removed or nobody wants more.
#include "router/hidraw/HidrawDevice.h"

#include <gmock/gmock.h>

#include <thread>

#include "ScriptedComputer.h"

namespace {

using namespace hidrawtest;  // NOLINT: the fixture of this program only
using router::DeviceError;
using router::HidrawDevice;
using router::RouterLimits;
using router::StopSignal;
using testing::ElementsAre;
using testing::IsEmpty;
using Next = router::OpenDevice::Next;

constexpr const char* kNode = "/dev/hidraw3";

class HidrawDeviceTest : public ScriptedComputer {
 protected:
  Bytes report() {
    std::span<const std::uint8_t> bytes;
    EXPECT_EQ(device_.next(stop_, &bytes), Next::Report);
    return {bytes.begin(), bytes.end()};
  }
  Next next() {
    std::span<const std::uint8_t> bytes;
    return device_.next(stop_, &bytes);
  }
  DeviceError failure() {
    return errorOf([this] { return next(); });
  }

  HidrawDevice device_{system_, tree_->at(kHid), nodes_->open(kNode), descriptor_};
  StopSignal stop_;
};

TEST_F(HidrawDeviceTest, HandsOutWhatCameInItsOrder) {
  nodes_->report(kNode, {1, 2, 3});
  nodes_->report(kNode, {4});
  EXPECT_THAT(report(), ElementsAre(1, 2, 3));
  EXPECT_THAT(report(), ElementsAre(4));
  nodes_->report(kNode, {5, 6});
  EXPECT_THAT(report(), ElementsAre(5, 6));
}

TEST_F(HidrawDeviceTest, AllThatWaitsIsReadAtOnceAndThenHandedOutFromMemory) {
  constexpr std::uint8_t kAll = 64;  // as many as the kernel keeps
  for (std::uint8_t i = 0; i < kAll; ++i) nodes_->report(kNode, {i, 0});
  EXPECT_THAT(report(), ElementsAre(0, 0));
  const std::size_t reads = nodes_->reads();
  EXPECT_EQ(reads, kAll + 1U);
  for (std::uint8_t i = 1; i < kAll; ++i) EXPECT_THAT(report(), ElementsAre(i, 0));
  EXPECT_EQ(nodes_->reads(), reads);
}

TEST_F(HidrawDeviceTest, ADeviceThatNeverPausesIsHandedOutNevertheless) {
  nodes_->readResults.assign(2 * RouterLimits::kReadAheadReports, 8);
  EXPECT_EQ(next(), Next::Report);
  EXPECT_EQ(nodes_->reads(), RouterLimits::kReadAheadReports);
  for (std::size_t i = 1; i < 2 * RouterLimits::kReadAheadReports; ++i)
    EXPECT_EQ(next(), Next::Report);
  EXPECT_EQ(nodes_->reads(), 2 * RouterLimits::kReadAheadReports);
}

TEST_F(HidrawDeviceTest, TheLargestReportsFitAndAreReadAheadAsMemoryAllows) {
  const auto largest = static_cast<ssize_t>(RouterLimits::kHidrawReportBytes);
  nodes_->readResults.assign(20, largest);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(report(), Bytes(RouterLimits::kHidrawReportBytes, 0x55));
  EXPECT_THAT(nodes_->readResults, IsEmpty());
}

TEST_F(HidrawDeviceTest, AReportThatIsCutOffIsAFailure) {
  nodes_->readResults = {3, static_cast<ssize_t>(RouterLimits::kHidrawReportBytes + 1)};
  EXPECT_EQ(report(), Bytes(3, 0x55));
  EXPECT_STREQ(failure().what(), "it cannot be read: Message too long");
  EXPECT_EQ(failure().code(), std::errc::message_size) << "it stays one";
}

TEST_F(HidrawDeviceTest, AnEmptyReportIsAFailure) {
  nodes_->readResults = {3, 0};
  EXPECT_EQ(report(), Bytes(3, 0x55));
  EXPECT_STREQ(failure().what(), "it cannot be read: No data available");
}

TEST_F(HidrawDeviceTest, AnInterruptedReadIsRepeated) {
  nodes_->readResults = {-EINTR, 2, -EINTR, -EINTR, 3};
  EXPECT_EQ(report(), Bytes(2, 0x55));
  EXPECT_EQ(report(), Bytes(3, 0x55));
}

TEST_F(HidrawDeviceTest, WhenItIsRemovedTheRestIsHandedOutFirst) {
  nodes_->report(kNode, {1});
  nodes_->report(kNode, {2});
  nodes_->remove(kNode);
  EXPECT_THAT(report(), ElementsAre(1));
  EXPECT_THAT(report(), ElementsAre(2));
  EXPECT_EQ(next(), Next::Gone);
  EXPECT_EQ(next(), Next::Gone);
}

TEST_F(HidrawDeviceTest, TheKernelHasTwoNumbersForWhatIsRemoved) {
  for (const int error : {EIO, ENODEV}) {
    HidrawDevice device(system_, tree_->at(kHid), nodes_->open(kNode), descriptor_);
    nodes_->remove(kNode);
    nodes_->readResults = {-error};
    std::span<const std::uint8_t> bytes;
    EXPECT_EQ(device.next(stop_, &bytes), Next::Gone) << error;
  }
}

TEST_F(HidrawDeviceTest, AnErrorOfADeviceThatIsStillThereIsAFailure) {
  nodes_->readResults = {-EIO};
  EXPECT_STREQ(failure().what(), "it cannot be read: Input/output error");
  EXPECT_EQ(failure().code(), std::errc::io_error);
}

TEST_F(HidrawDeviceTest, AnotherErrorIsAFailureEvenIfItIsRemoved) {
  nodes_->readResults = {-EFAULT};
  nodes_->remove(kNode);
  EXPECT_EQ(failure().code(), std::errc::bad_address);
}

TEST_F(HidrawDeviceTest, IsGoneIfItIsRemovedWhileNothingIsThereToRead) {
  std::thread reader([this] { EXPECT_EQ(next(), Next::Gone); });
  nodes_->remove(kNode);
  reader.join();
}

TEST_F(HidrawDeviceTest, WhatIsHungUpAndHasNothingToReadIsNotAskedAgain) {
  nodes_->remove(kNode);
  nodes_->readResults.assign(2, -EAGAIN);
  EXPECT_EQ(next(), Next::Gone);
  EXPECT_EQ(nodes_->reads(), 1U);
}

TEST_F(HidrawDeviceTest, AReportEndsTheWait) {
  std::thread reader([this] { EXPECT_THAT(report(), ElementsAre(7, 8)); });
  nodes_->report(kNode, {7, 8});
  reader.join();
}

TEST_F(HidrawDeviceTest, AStopEndsTheWait) {
  std::thread reader([this] { EXPECT_EQ(next(), Next::Stopped); });
  stop_.raise();
  reader.join();
}

TEST_F(HidrawDeviceTest, AfterAStopNothingIsReadOrHandedOut) {
  nodes_->report(kNode, {1});
  nodes_->report(kNode, {2});
  EXPECT_THAT(report(), ElementsAre(1));
  const std::size_t reads = nodes_->reads();
  stop_.raise();
  EXPECT_EQ(next(), Next::Stopped);
  EXPECT_EQ(nodes_->reads(), reads);
}

TEST_F(HidrawDeviceTest, ItsInputIsTakenAndGivenBack) {
  EXPECT_THAT(nodes_->grabbed(), IsEmpty());
  device_.takeExclusively();
  EXPECT_THAT(nodes_->grabbed(), ElementsAre("/dev/input/event5"));
  nodes_->report(kNode, {1});
  EXPECT_THAT(report(), ElementsAre(1)) << "its reports come all the same";
  device_.releaseExclusive();
  EXPECT_THAT(nodes_->grabbed(), IsEmpty());
  device_.releaseExclusive();
}

TEST_F(HidrawDeviceTest, ItsInputIsGivenBackWhenItIsClosed) {
  {
    HidrawDevice device(system_, tree_->at(kHid), nodes_->open(kNode), descriptor_);
    device.takeExclusively();
    EXPECT_THAT(nodes_->grabbed(), ElementsAre("/dev/input/event5"));
  }
  EXPECT_THAT(nodes_->grabbed(), IsEmpty());
}

}  // namespace
