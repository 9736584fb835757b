#include "router/RouterStatus.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#include "router/AtomicFile.h"

namespace {

namespace fs = std::filesystem;
using router::RouterStatus;

class RouterStatusTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "/status.XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    directory_ = fs::path(pattern).lexically_normal();
  }
  void TearDown() override { fs::remove_all(directory_); }
  platform::SystemRoot root() const { return platform::SystemRoot(directory_); }
  fs::path directory_;
};

TEST_F(RouterStatusTest, ReadsWhatWasWritten) {
  RouterStatus status;
  status.pid = ::getpid();
  status.version = "1.2.3";
  status.lost = 0x123456789abcdef0;
  status.sessions.push_back({42, 1000, std::nullopt, "", false, 0, 0});
  status.sessions.push_back({43, 0, 0x1ffffffff, "Maus <&> Ü", true, 5000000000, 7});
  router::writeRouterStatus(root(), status);
  EXPECT_EQ(router::readRouterStatus(root()), status);
  EXPECT_TRUE(router::isRunning(status));
  EXPECT_EQ(router::routerStatusFile(root()),
            directory_ / "var/run/com.quillmar.hideventrouter.status.plist");
}

TEST_F(RouterStatusTest, IsNothingWhereThereIsNone) {
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt);
  EXPECT_FALSE(router::isRunning(RouterStatus()));
}

TEST_F(RouterStatusTest, ForeignContentIsNoStatus) {
  fs::create_directories(directory_ / "var/run");
  for (const char* text :
       {"", "nonsense", "<plist><array/></plist>", "<plist><dict/></plist>",
        "<plist><dict><key>PID</key><string>1</string></dict></plist>",
        "<plist><dict><key>PID</key><integer>-5</integer></dict></plist>",
        "<plist><dict><key>PID</key><integer>4294967296</integer></dict></plist>"}) {
    std::ofstream(router::routerStatusFile(root())) << text;
    EXPECT_EQ(router::readRouterStatus(root()), std::nullopt) << text;
  }
  std::ofstream(router::routerStatusFile(root()))
      << "<plist version=\"1.0\"><dict><key>PID</key><integer>5</integer><key>Sessions</key>"
         "<array><string>x</string><dict><key>PID</key><true/></dict></array></dict></plist>";
  const auto status = router::readRouterStatus(root());
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(status->pid, 5);
  EXPECT_EQ(status->sessions.size(), 1U);
}

TEST_F(RouterStatusTest, IsRemovedByItsOwnProcessOnly) {
  RouterStatus status;
  status.pid = ::getpid();
  router::writeRouterStatus(root(), status);
  router::removeRouterStatus(root(), status.pid + 1);
  EXPECT_TRUE(router::readRouterStatus(root()).has_value());
  router::removeRouterStatus(root(), status.pid);
  EXPECT_FALSE(fs::exists(router::routerStatusFile(root())));
}

TEST_F(RouterStatusTest, LeavesNoTemporaryFilesAndFollowsNoLink) {
  const fs::path victim = directory_ / "victim";
  std::ofstream(victim) << "untouched";
  fs::create_directories(directory_ / "var/run");
  fs::create_symlink(victim, router::routerStatusFile(root()));
  RouterStatus status;
  status.pid = 1;
  router::writeRouterStatus(root(), status);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(router::routerStatusFile(root()))));
  std::string text;
  std::ifstream(victim) >> text;
  EXPECT_EQ(text, "untouched");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory_ / "var/run"), fs::directory_iterator()),
            1);
}

TEST_F(RouterStatusTest, WhatKilledWritersLeftIsRemovedAndNothingElse) {
  const fs::path file = router::routerStatusFile(root());
  fs::create_directories(file.parent_path());
  const pid_t dead = ::fork();
  if (dead == 0) ::_exit(0);
  ASSERT_EQ(::waitpid(dead, nullptr, 0), dead);
  const auto beside = [&](const std::string& text) {
    const fs::path path = file.parent_path() / ("." + file.filename().string() + text);
    std::ofstream(path) << "half";
    return path;
  };
  const fs::path left = beside("." + std::to_string(dead) + ".7");
  const std::vector<fs::path> others{beside("." + std::to_string(::getpid()) + ".0"), beside(".x"),
                                     beside("." + std::to_string(dead)),
                                     file.parent_path() / "other"};
  std::ofstream(others.back()) << "other";
  router::removeAbandonedWrites(file);
  EXPECT_FALSE(fs::exists(left));
  for (const fs::path& other : others) EXPECT_TRUE(fs::exists(other)) << other;
  router::removeAbandonedWrites(directory_ / "missing/file");
}

}  // namespace
