// SPDX-License-Identifier: Apache-2.0

// Directories as /dev and udev's records, changed as the kernel and udev change them. Each change
// is followed by a bounded wait for the watch.
#include "router/hidraw/NodeWatch.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <fstream>

#include "tests/support/TemporaryDirectory.h"

namespace {

class NodeWatchTest : public testing::Test {
 protected:
  NodeWatchTest() {
    std::filesystem::create_directories(nodes_);
    std::filesystem::create_directories(records_);
    watch_ = router::NodeWatch::begin(nodes_, records_);
  }
  void node(const std::string& name) const { testsupport::writeFile(nodes_ + "/" + name, ""); }
  /// As udev does: written beside its place, then moved there.
  void record(const std::string& name) const {
    testsupport::writeFile(records_ + "/.#" + name, "I:1\n");
    std::filesystem::rename(records_ + "/.#" + name, records_ + "/" + name);
  }
  [[nodiscard]] bool notices() const {
    constexpr int kPatience = 30'000;
    pollfd poll{watch_->descriptor(), POLLIN, 0};
    return ::poll(&poll, 1, kPatience) == 1 && watch_->take();
  }

  const testsupport::TemporaryDirectory directory_;
  const std::string nodes_ = directory_.path() / "dev";
  const std::string records_ = directory_.path() / "data";
  std::unique_ptr<router::NodeWatch> watch_;
};

TEST_F(NodeWatchTest, NoticesEachStepOfADevicesLife) {
  ASSERT_NE(watch_, nullptr);
  EXPECT_FALSE(watch_->take()) << "nothing has happened yet";
  node("hidraw3");
  EXPECT_TRUE(notices()) << "the node";
  record("c246:3");
  EXPECT_TRUE(notices()) << "the record of a device whose rules have run";
  ASSERT_EQ(::chmod((nodes_ + "/hidraw3").c_str(), 0640), 0);
  EXPECT_TRUE(notices()) << "the node's permissions";
  record("c246:3");
  EXPECT_TRUE(notices()) << "a record that is written again";
  std::filesystem::remove(records_ + "/c246:3");
  EXPECT_TRUE(notices()) << "the end of the record";
  std::filesystem::remove(nodes_ + "/hidraw3");
  EXPECT_TRUE(notices()) << "the end of the node";
  EXPECT_FALSE(watch_->take());
}

TEST_F(NodeWatchTest, NoticesTheRecordsOfDevicesWithoutANode) {
  record("+hid:0003:046D:C534.0001");
  EXPECT_TRUE(notices());
  record("+input:input4");
  EXPECT_TRUE(notices());
}

TEST_F(NodeWatchTest, OtherNodesAndRecordsDoNotMatter) {
  node("sda1");
  record("b8:1");
  record("n2");
  record("+usb:1-1");
  EXPECT_FALSE(watch_->take());
}

TEST_F(NodeWatchTest, WhatIsWrittenToANodeDoesNotMatter) {
  node("hidraw3");
  ASSERT_TRUE(notices());
  testsupport::writeFile(nodes_ + "/hidraw3", "as every program writes to /dev/null");
  EXPECT_FALSE(watch_->take());
}

TEST_F(NodeWatchTest, MoreChangesThanTheKernelKeepsAreAChange) {
  std::size_t kept = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kept;
  ASSERT_GT(kept, 0U);
  for (const char* name : {"/x", "/y"}) std::filesystem::create_directory(nodes_ + name);
  // By turns, since the kernel keeps one of equal ones that follow each other.
  for (std::size_t i = 0; i <= kept; ++i)
    ASSERT_EQ(::chmod((nodes_ + (i % 2 == 0 ? "/x" : "/y")).c_str(), 0700), 0);
  EXPECT_TRUE(watch_->take());
}

TEST_F(NodeWatchTest, OneDirectoryIsEnough) {
  watch_ = router::NodeWatch::begin(nodes_, records_ + "/none");
  ASSERT_NE(watch_, nullptr);
  node("hidraw0");
  EXPECT_TRUE(notices());
  EXPECT_EQ(router::NodeWatch::begin(nodes_ + "/none", records_ + "/none"), nullptr);
}

}  // namespace
