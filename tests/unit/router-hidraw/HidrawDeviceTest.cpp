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

TEST_F(HidrawDeviceTest, KnowsWhenAReportWasReadEvenIfItIsHandedOutLater) {
  const auto before = std::chrono::steady_clock::now();
  nodes_->report(kNode, {1});
  EXPECT_THAT(report(), ElementsAre(1));
  const auto first = device_.arrival();
  EXPECT_GE(first, before);
  nodes_->report(kNode, {2});
  nodes_->report(kNode, {3});
  nodes_->awaitAllRead(kNode);
  const auto later = std::chrono::steady_clock::now();
  EXPECT_THAT(report(), ElementsAre(2));
  EXPECT_GE(device_.arrival(), first);
  EXPECT_LE(device_.arrival(), later);
}

TEST_F(HidrawDeviceTest, IsReadWhileItsReportsAreHandedOut) {
  nodes_->report(kNode, {0});
  EXPECT_THAT(report(), ElementsAre(0));
  // As often as the kernel's own 64 places are filled, nobody asks for any of them.
  constexpr int kTimes = 3;
  constexpr std::uint8_t kPlaces = 64;
  for (int time = 0; time < kTimes; ++time) {
    for (std::uint8_t i = 0; i < kPlaces; ++i) nodes_->report(kNode, {i});
    nodes_->awaitAllRead(kNode);
  }
  for (int i = 0; i < kTimes * kPlaces; ++i) EXPECT_THAT(report(), ElementsAre(i % kPlaces));
  EXPECT_EQ(device_.lost(), 0U);
}

TEST_F(HidrawDeviceTest, WhatComesWithoutBeingAskedForIsLimitedAndItsLossCounted) {
  constexpr std::size_t kTooMany = 5;
  EXPECT_EQ(device_.lost(), 0U);
  nodes_->report(kNode, {0});
  EXPECT_THAT(report(), ElementsAre(0));
  for (std::size_t i = 0; i < RouterLimits::kReadAheadReports + kTooMany; ++i) {
    nodes_->report(kNode, {1});
    nodes_->awaitAllRead(kNode);
  }
  nodes_->remove(kNode);
  for (std::size_t i = 0; i < RouterLimits::kReadAheadReports; ++i)
    EXPECT_THAT(report(), ElementsAre(1));
  EXPECT_EQ(next(), Next::Gone);
  EXPECT_EQ(device_.lost(), kTooMany);
}

TEST_F(HidrawDeviceTest, TheLargestReportsFit) {
  const auto largest = static_cast<ssize_t>(RouterLimits::kHidrawReportBytes);
  nodes_->readResults.assign(3, largest);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(report(), Bytes(RouterLimits::kHidrawReportBytes, 0x55));
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
  EXPECT_EQ(next(), Next::Gone) << "it stays that";
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

TEST_F(HidrawDeviceTest, AfterAStopNothingIsHandedOut) {
  nodes_->report(kNode, {1});
  nodes_->report(kNode, {2});
  EXPECT_THAT(report(), ElementsAre(1));
  stop_.raise();
  EXPECT_EQ(next(), Next::Stopped);
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
