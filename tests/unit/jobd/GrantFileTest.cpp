// SPDX-License-Identifier: Apache-2.0

#include "jobd/GrantFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceError.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using platform::DeviceGrant;
using platform::ServiceError;
using testing::ElementsAre;
using testing::HasSubstr;

const DeviceGrant kPedal{1000, {3, 0x5f3, 0xff, "A1"}, "Pedal"};
const DeviceGrant kDial{1001, {5, 0x46d, 0xc52b, ""}, "Dial"};

class GrantFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::vector<DeviceGrant> grants() const {
    return platform::readDeviceGrants(root_.get());
  }
  [[nodiscard]] std::string failureOf(const std::function<void()>& change) const {
    try {
      change();
      return {};
    } catch (const ServiceError& error) {
      return error.what();
    }
  }

  const testsupport::TemporaryDirectory directory_;
  const fs::path file_ = directory_.path() / "var/lib/wlhid/grants.plist";
  const platform::FileDescriptor root_{
      ::open(directory_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  const jobd::GrantFile granting_{root_.get()};
};

TEST_F(GrantFileTest, IsMadeWithTheFirstGrantAndReadableByAll) {
  EXPECT_THAT(grants(), ElementsAre());
  granting_.grant(kPedal);
  EXPECT_THAT(grants(), ElementsAre(kPedal));
  EXPECT_EQ(fs::status(file_).permissions(), fs::perms(0644));
}

TEST_F(GrantFileTest, GrantsAreAddedAndTakenBack) {
  granting_.grant(kPedal);
  granting_.grant(kDial);
  DeviceGrant renamed = kPedal;
  renamed.name = "Switch";
  granting_.grant(renamed);
  EXPECT_THAT(grants(), ElementsAre(renamed, kDial)) << "a grant is there once";
  granting_.revoke(kPedal);
  EXPECT_THAT(grants(), ElementsAre(kDial));
  EXPECT_EQ(failureOf([&] { granting_.revoke(kPedal); }), "there is no such grant any more");
  EXPECT_THAT(grants(), ElementsAre(kDial));
}

TEST_F(GrantFileTest, WhatADaemonLeftThatWasKilledIsNotInTheWay) {
  granting_.grant(kPedal);
  testsupport::writeFile(file_.parent_path() / ".grants.draft", "half");
  granting_.grant(kDial);
  EXPECT_THAT(grants(), ElementsAre(kPedal, kDial));
  EXPECT_EQ(std::distance(fs::directory_iterator(file_.parent_path()), {}), 1);
}

TEST_F(GrantFileTest, AFileThatIsNotUnderstoodStaysAsItIs) {
  granting_.grant(kPedal);
  testsupport::writeFile(file_, "nonsense");
  EXPECT_THAT(failureOf([&] { granting_.grant(kDial); }), HasSubstr("grants.plist: "));
  EXPECT_THAT(failureOf([&] { granting_.revoke(kPedal); }), HasSubstr("grants.plist: "));
  EXPECT_EQ(testsupport::readFile(file_), "nonsense");
}

TEST_F(GrantFileTest, ALinkIsNeitherReadNorWritten) {
  granting_.grant(kPedal);
  fs::rename(file_, directory_.path() / "elsewhere");
  fs::create_symlink(directory_.path() / "elsewhere", file_);
  EXPECT_NE(failureOf([&] { granting_.grant(kDial); }), "");
  EXPECT_TRUE(fs::is_symlink(file_));
}

TEST_F(GrantFileTest, ASerialNumberThatIsNoTextIsRefused) {
  DeviceGrant strange = kPedal;
  strange.device.unique = "\xff";
  granting_.grant(kDial);
  EXPECT_NE(failureOf([&] { granting_.grant(strange); }), "");
  EXPECT_THAT(grants(), ElementsAre(kDial));
}

}  // namespace
