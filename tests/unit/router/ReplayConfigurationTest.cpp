// SPDX-License-Identifier: Apache-2.0

// The content of a configuration file, key by key, and the ID derived from it.
#include "router/ReplayConfiguration.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include "ReplayFixture.h"
#include "platform/foundation/NSNumber.h"

namespace {

using platform::NSDictionary;
using platform::NSNumber;
using platform::str;
using router::DeviceError;
using router::ReplayDevice;

class ReplayConfigurationTest : public ReplayTest {
 protected:
  using Entries = std::vector<NSDictionary::Entry>;

  ReplayDevice read(std::size_t limit = 65536) const {
    const router::OpenFile file = router::openFile(file_);
    return router::readReplayConfiguration(file, "x", limit);
  }
  ReplayDevice readWith(Entries entries) const {
    entries.emplace_back(str("Source"), str("replay"));
    entries.emplace_back(str("Recording"), str("m.hid"));
    configure("x.plist", std::move(entries));
    return read();
  }
  std::string refusalOf(Entries entries) const {
    try {
      readWith(std::move(entries));
    } catch (const DeviceError& error) {
      return error.what();
    }
    return "accepted";
  }
  const std::filesystem::path file_ = directory_ / "etc/hideventrouter/x.plist";
};

TEST_F(ReplayConfigurationTest, WhatIsLeftOutHasItsDefault) {
  ReplayDevice expected;
  expected.configuration = "x";
  expected.recording = "m.hid";
  expected.speed = {1, false};
  expected.repeat = false;
  expected.device = 0;
  EXPECT_EQ(readWith({}), expected);
}

TEST_F(ReplayConfigurationTest, EveryKeyIsRead) {
  ReplayDevice expected;
  expected.configuration = "x";
  expected.recording = "m.hid";
  expected.speed = {2.5, false};
  expected.repeat = true;
  expected.device = 3;
  expected.name = "Left";
  EXPECT_EQ(readWith({{str("Speed"), NSNumber::numberWithDouble(2.5)},
                      {str("Repeat"), NSNumber::numberWithBool(true)},
                      {str("Device"), NSNumber::numberWithUnsignedLongLong(3)},
                      {str("Name"), str("Left")}}),
            expected);
  EXPECT_FALSE(readWith({{str("Repeat"), NSNumber::numberWithBool(false)}}).repeat);
}

TEST_F(ReplayConfigurationTest, WhatIsWrittenIsReadBack) {
  ReplayDevice device;
  device.configuration = "x";
  device.recording = "m.hid";
  const auto again = [&] {
    const auto data = router::replayConfigurationData(device);
    write(file_, std::string(data->span().begin(), data->span().end()));
    return read();
  };
  EXPECT_EQ(again(), device);
  for (const std::uint32_t number : {1U, 2U, 4294967295U}) {
    device.device = number;
    EXPECT_EQ(again(), device);
  }
  device.speed = {0.001, false};
  device.repeat = true;
  device.name = "Ümläut <&>";
  EXPECT_EQ(again(), device);
  device.speed = {1, true};
  EXPECT_EQ(again(), device);
}

TEST_F(ReplayConfigurationTest, ADeviceNumberIsOneOfThirtyTwoBits) {
  EXPECT_EQ(readWith({{str("Device"), NSNumber::numberWithUnsignedLongLong(4294967295)}}).device,
            4294967295U);
  EXPECT_EQ(refusalOf({{str("Device"), NSNumber::numberWithUnsignedLongLong(4294967296)}}),
            "Device is not a device number");
  EXPECT_EQ(refusalOf({{str("Device"), str("1")}}), "Device is not a device number");
}

TEST_F(ReplayConfigurationTest, OnlyABooleanIsOne) {
  EXPECT_EQ(refusalOf({{str("Repeat"), NSNumber::numberWithUnsignedLongLong(1)}}),
            "Repeat is not a boolean");
}

TEST_F(ReplayConfigurationTest, ANameIsMadePrintableAndCut) {
  const auto name = [&](const std::string& text) {
    return readWith({{str("Name"), platform::NSString::stringWithUTF8(text)}}).name;
  };
  EXPECT_EQ(name("a\nb"), "a\\x0ab");
  EXPECT_EQ(name(std::string(128, 'x')), std::string(128, 'x'));
  EXPECT_EQ(name(std::string(129, 'x')), std::string(127, 'x') + "…");
}

TEST_F(ReplayConfigurationTest, AFileMayBeAsLargeAsItsBound) {
  readWith({});
  const auto size = std::filesystem::file_size(file_);
  EXPECT_EQ(read(size).recording, "m.hid");
  try {
    read(size - 1);
    FAIL() << "it was read";
  } catch (const DeviceError& error) {
    EXPECT_EQ(error.what(), "is larger than " + std::to_string(size - 1) + " bytes");
  }
}

TEST_F(ReplayConfigurationTest, AFileThatCannotBeReadIsAnErrorWithItsCode) {
  const router::OpenFile directory{
      platform::FileDescriptor(::open(directory_.c_str(), O_RDONLY | O_CLOEXEC)), {}, 0};
  try {
    static_cast<void>(router::readReplayConfiguration(directory, "x", 100));
    FAIL() << "it was read";
  } catch (const DeviceError& error) {
    EXPECT_STREQ(error.what(), "cannot be read: Is a directory");
    EXPECT_EQ(error.code(), std::errc::is_a_directory);
  }
}

/// Other processes and later versions must get the same IDs, so these numbers must not change.
TEST(ReplayID, IsTheSameEverywhere) {
  ReplayDevice device;
  device.configuration = "mouse";
  device.recording = "mouse.hid";
  EXPECT_EQ(router::preferredRegistryEntryID(device), 0x1e2488572U);
  device.configuration = "a";
  device.recording = "b.hid";
  device.speed = {2.5, false};
  device.repeat = true;
  device.device = 3;
  device.name = "Left";  // does not affect the ID
  EXPECT_EQ(router::preferredRegistryEntryID(device), 0x19613fb74U);
  device.configuration = "ä";
  device.recording = "m.hid";
  device.speed = {1, true};
  device.repeat = false;
  device.device = 4294967295;
  EXPECT_EQ(router::preferredRegistryEntryID(device), 0x136f4e8f9U);
}

using ReplayIDTest = ReplayTest;

TEST_F(ReplayIDTest, OfTwoThatHaveTheSameByAccidentTheLaterHasTheNext) {
  // These two names have the same hash.
  writeCopy("m.hid", kRecording);
  for (const std::string name : {"n60593", "n52003"}) {
    configure(name + ".plist", {{str("Source"), str("replay")},
                                {str("Recording"), str("m.hid")},
                                {str("Name"), str("of " + name)}});
  }
  const auto devices = list();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0].registryEntryID, 0x127c9f284U);
  EXPECT_EQ(devices[0].name, "of n52003");
  EXPECT_EQ(devices[1].registryEntryID, 0x127c9f285U);
  EXPECT_EQ(devices[1].name, "of n60593");
  EXPECT_NE(open(0x127c9f285), nullptr);
  EXPECT_EQ(open(0x127c9f286), nullptr);
}

}  // namespace
