// SPDX-License-Identifier: Apache-2.0

#include "router/policy/Grants.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/OtherUser.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr uid_t kUser = 1000;
const platform::DeviceIdentity kPedal{3, 0x5f3, 0xff, "A1"};
const platform::DeviceIdentity kDial{3, 0x46d, 0xc52b, ""};

class GrantsTest : public testing::Test {
 protected:
  GrantsTest() {
    ::chmod(temporary_.path().c_str(), 0755);
    fs::create_directories(file_.parent_path());
    ::chmod(file_.parent_path().c_str(), 0755);
  }
  void grant(const std::vector<platform::DeviceGrant>& grants) const {
    const auto bytes = platform::encodeDeviceGrants(grants);
    put(std::string(bytes.begin(), bytes.end()));
  }
  /// Atomically, as the job daemon does it.
  void put(const std::string& text) const {
    const fs::path draft = file_.parent_path() / "draft";
    std::ofstream(draft) << text;
    ::chmod(draft.c_str(), 0644);
    fs::rename(draft, file_);
  }
  [[nodiscard]] bool covers(const platform::DeviceIdentity& device, uid_t user = kUser) {
    return grants_.covers(user, device);
  }

  const testsupport::TemporaryDirectory temporary_;
  const fs::path file_ = temporary_.path() / "var/lib/wlhid/grants.plist";
  std::vector<std::string> lines_;
  router::Grants grants_{platform::SystemRoot(temporary_.path()),
                         [this](const platform::LogLine& line) { lines_.push_back(line.text()); },
                         ::geteuid()};
};

TEST_F(GrantsTest, AGrantCountsAsLongAsItStandsInTheFile) {
  EXPECT_FALSE(covers(kPedal));
  grant({{kUser, kPedal, "Pedal"}});
  EXPECT_TRUE(covers(kPedal));
  EXPECT_FALSE(covers(kDial));
  EXPECT_FALSE(covers(kPedal, kUser + 1));
  grant({{kUser, kPedal, "Pedal"}, {kUser, kDial, "Dial"}});
  EXPECT_TRUE(covers(kDial));
  grant({});
  EXPECT_FALSE(covers(kPedal));
  fs::remove(file_);
  EXPECT_FALSE(covers(kPedal));
  EXPECT_THAT(lines_, ElementsAre()) << "no file is no error";
}

TEST_F(GrantsTest, AChangeThatTheTimeDoesNotShowIsSeenToo) {
  grant({{kUser, kPedal, "Pedal"}});
  EXPECT_TRUE(covers(kPedal));
  // In place, at once and of the same size.
  std::string text = testsupport::readFile(file_);
  text.replace(text.find("1000"), 4, "1001");
  std::ofstream(file_) << text;
  EXPECT_FALSE(covers(kPedal));
  EXPECT_TRUE(covers(kPedal, kUser + 1));
}

TEST_F(GrantsTest, AFileThatIsNotUnderstoodGrantsNothingAndIsLoggedOnceAChange) {
  put("nonsense");
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(covers(kPedal));
  EXPECT_THAT(lines_, ElementsAre(HasSubstr("the administrator's grants are not used: "
                                            "grants.plist: it is not a property list")));
  put("nonsense!");
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(covers(kPedal));
  EXPECT_EQ(lines_.size(), 2U);
  grant({{kUser, kPedal, "Pedal"}});
  EXPECT_TRUE(covers(kPedal));
  EXPECT_EQ(lines_.size(), 2U);
}

TEST_F(GrantsTest, ALinkGrantsNothing) {
  grant({{kUser, kPedal, "Pedal"}});
  fs::rename(file_, temporary_.path() / "elsewhere");
  fs::create_symlink(temporary_.path() / "elsewhere", file_);
  EXPECT_FALSE(covers(kPedal));
  EXPECT_FALSE(covers(kPedal));
  EXPECT_EQ(lines_.size(), 1U);
}

TEST_F(GrantsTest, APipeGrantsNothingAndHoldsNobodyUp) {
  ASSERT_EQ(::mkfifo(file_.c_str(), 0644), 0);
  EXPECT_FALSE(covers(kPedal));
  EXPECT_THAT(lines_, ElementsAre(HasSubstr("it is not a regular file")));
}

TEST_F(GrantsTest, WhatOthersMayWriteGrantsNothing) {
  grant({{kUser, kPedal, "Pedal"}});
  for (const mode_t mode : {0664, 0646}) {
    ASSERT_EQ(::chmod(file_.c_str(), mode), 0);
    EXPECT_FALSE(covers(kPedal));
    EXPECT_THAT(lines_.back(), HasSubstr("grants.plist: others may write it"));
  }
  ASSERT_EQ(::chmod(file_.c_str(), 0644), 0);
  EXPECT_TRUE(covers(kPedal));
  ASSERT_EQ(::chmod(file_.parent_path().c_str(), 0775), 0);
  EXPECT_FALSE(covers(kPedal));
  EXPECT_THAT(lines_.back(), HasSubstr("var/lib/wlhid: others may write it"));
}

TEST_F(GrantsTest, WhatIsAnotherUsersGrantsNothing) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  grant({{kUser, kPedal, "Pedal"}});
  ASSERT_EQ(::chown(file_.c_str(), testsupport::kOtherUser, 0), 0);
  EXPECT_FALSE(covers(kPedal));
  EXPECT_THAT(lines_,
              ElementsAre(HasSubstr("grants.plist: it belongs to user 12345, not to user 0")));
}

TEST_F(GrantsTest, AFileThatIsTooLargeGrantsNothing) {
  put(std::string(platform::kMaximumGrantFileBytes + 1, ' '));
  EXPECT_FALSE(covers(kPedal));
  EXPECT_EQ(lines_.size(), 1U);
}

}  // namespace
