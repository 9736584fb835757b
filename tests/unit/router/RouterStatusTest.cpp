// SPDX-License-Identifier: Apache-2.0

#include "router/RouterStatus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using router::RouterStatus;
using router::RouterStatusFile;

class RouterStatusTest : public testing::Test {
 protected:
  platform::SystemRoot root() const { return platform::SystemRoot(directory_); }
  const testsupport::TemporaryDirectory temporary_;
  const fs::path& directory_ = temporary_.path();
};

TEST_F(RouterStatusTest, ReadsWhatWasWritten) {
  RouterStatus status;
  status.pid = ::getpid();
  status.version = "1.2.3";
  status.lost = 0x123456789abcdef0;
  status.sessions.push_back({42, 1000, std::nullopt, "", false, 0, 0});
  status.sessions.push_back({43, 0, 0x1ffffffff, "Maus <&> Ü", true, 5000000000, 7});
  status.sessions.push_back({44, 7, std::nullopt, "", false, 0, 0, 12, "/usr/bin/pen", "a.scope"});
  status.isRunning = true;
  RouterStatusFile file(root());
  file.write(status);
  EXPECT_EQ(router::readRouterStatus(root()), status);
  EXPECT_EQ(router::routerStatusFile(root()),
            directory_ / "var/run/com.quillmar.hideventrouter.status.plist");
}

TEST_F(RouterStatusTest, IsNothingWhereThereIsNone) {
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt);
  EXPECT_EQ(router::readRouterStatus(platform::SystemRoot(directory_ / "none")), std::nullopt);
}

TEST_F(RouterStatusTest, WhatADeadRouterLeftIsNotRunningWhoeverHasItsNumberNow) {
  const pid_t child = ::fork();
  if (child == 0) {
    RouterStatusFile file(root());
    RouterStatus status;
    status.pid = ::getppid();  // a live process, as if it had been given the same ID
    file.write(status);
    ::_exit(0);  // without a farewell
  }
  int end = 0;
  ASSERT_EQ(::waitpid(child, &end, 0), child);
  ASSERT_EQ(end, 0);
  const auto status = router::readRouterStatus(root());
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(status->pid, ::getpid());
  EXPECT_FALSE(status->isRunning);
}

TEST_F(RouterStatusTest, WhoOnlyReadsTheFileCannotHoldIt) {
  {
    RouterStatusFile file(root());
    RouterStatus status;
    status.pid = ::getpid();
    file.write(status);
  }
  const platform::FileDescriptor reader(
      ::open(router::routerStatusFile(root()).c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(reader);
  ASSERT_EQ(::flock(reader.get(), LOCK_EX | LOCK_NB), 0);
  struct flock lock {};
  lock.l_type = F_RDLCK;
  ASSERT_EQ(::fcntl(reader.get(), F_OFD_SETLK, &lock), 0);
  EXPECT_FALSE(router::readRouterStatus(root())->isRunning);
}

TEST_F(RouterStatusTest, ALivingRoutersIsRunningAtEveryMomentOfARewrite) {
  RouterStatusFile file(root());
  RouterStatus status;
  status.pid = ::getpid();
  file.write(status);
  std::atomic<bool> isOver{false};
  std::thread writer([&] {
    for (int i = 0; i < 500; ++i) file.write(status);
    isOver = true;
  });
  int wrong = 0;
  while (!isOver) {
    const auto read = router::readRouterStatus(root());
    if (!read || !read->isRunning) ++wrong;
  }
  writer.join();
  EXPECT_EQ(wrong, 0);
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

TEST_F(RouterStatusTest, IsRemovedByWhoWroteItOnly) {
  RouterStatus status;
  status.pid = ::getpid();
  RouterStatusFile first(root());
  first.write(status);
  RouterStatusFile second(root());
  second.write(status);
  first.remove();
  EXPECT_TRUE(router::readRouterStatus(root()).has_value());
  second.remove();
  EXPECT_FALSE(fs::exists(router::routerStatusFile(root())));
  second.remove();
}

TEST_F(RouterStatusTest, StaysInTheDirectoryThatWasOpened) {
  const platform::SystemRoot opened(platform::openOwnRoot(root()), directory_);
  RouterStatusFile file(opened);
  RouterStatus status;
  status.pid = ::getpid();
  const fs::path away = directory_.string() + ".away";
  const fs::path planted = directory_.string() + ".planted";
  fs::create_directories(planted);
  fs::rename(directory_, away);
  fs::create_directory_symlink(planted, directory_);
  file.write(status);
  EXPECT_TRUE(fs::is_empty(planted));
  EXPECT_TRUE(fs::exists(router::routerStatusFile(platform::SystemRoot(away))));
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt) << "a link is not a root";
  file.remove();
  EXPECT_FALSE(fs::exists(router::routerStatusFile(platform::SystemRoot(away))));
  fs::remove(directory_);
  fs::remove_all(planted);
  fs::rename(away, directory_);
}

TEST_F(RouterStatusTest, LeavesNoTemporaryFilesAndFollowsNoLink) {
  const fs::path victim = directory_ / "victim";
  std::ofstream(victim) << "untouched";
  fs::create_directories(directory_ / "var/run");
  fs::create_symlink(victim, router::routerStatusFile(root()));
  RouterStatus status;
  status.pid = 1;
  RouterStatusFile file(root());
  file.write(status);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(router::routerStatusFile(root()))));
  std::string text;
  std::ifstream(victim) >> text;
  EXPECT_EQ(text, "untouched");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory_ / "var/run"), fs::directory_iterator()),
            1);
}

TEST_F(RouterStatusTest, DirectoriesThatAreLinksAreNotUsed) {
  const fs::path victim = directory_ / "victim";
  fs::create_directories(victim);
  fs::create_directories(directory_ / "var");
  fs::create_directory_symlink(victim, directory_ / "var/run");
  RouterStatusFile file(root());
  RouterStatus status;
  status.pid = ::getpid();
  EXPECT_THROW(file.write(status), platform::ServiceError);
  EXPECT_TRUE(fs::is_empty(victim));
  std::ofstream(victim / router::routerStatusFile(root()).filename())
      << "<plist version=\"1.0\"><dict><key>PID</key><integer>5</integer></dict></plist>";
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt);
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
  const RouterStatusFile clearing(root());
  EXPECT_FALSE(fs::exists(left));
  for (const fs::path& other : others) EXPECT_TRUE(fs::exists(other)) << other;
  const RouterStatusFile nothingToClear(platform::SystemRoot(directory_ / "missing"));
}

RouterStatus statusOf(const fs::path& file, const platform::SystemRoot& root,
                      const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << "<plist version=\"1.0\"><dict>" << content << "</dict></plist>";
  return router::readRouterStatus(root).value_or(RouterStatus());
}

TEST_F(RouterStatusTest, WhatAFileLeavesOutIsZero) {
  const fs::path file = router::routerStatusFile(root());
  const RouterStatus status = statusOf(
      file, root(), "<key>PID</key><integer>1</integer><key>Sessions</key><array><dict/></array>");
  EXPECT_EQ(status.pid, 1);
  EXPECT_EQ(status.lost, 0U);
  EXPECT_EQ(status.version, "");
  EXPECT_FALSE(status.isRunning);
  ASSERT_EQ(status.sessions.size(), 1U);
  EXPECT_EQ(status.sessions[0], (router::SessionStatus{-1, 0, std::nullopt, "", false, 0, 0}));
}

TEST_F(RouterStatusTest, AProcessHasANumberThatProcessesHave) {
  const fs::path file = router::routerStatusFile(root());
  const auto pid = [&](const std::string& number) {
    return statusOf(file, root(), "<key>PID</key><integer>" + number + "</integer>").pid;
  };
  EXPECT_EQ(pid("1"), 1);
  EXPECT_EQ(pid("2147483647"), 2147483647);
  EXPECT_EQ(pid("2147483648"), -1);
  EXPECT_EQ(pid("0"), -1);
}

TEST_F(RouterStatusTest, ALinkInTheFilesPlaceIsNotRead) {
  const fs::path file = router::routerStatusFile(root());
  const fs::path elsewhere = directory_ / "elsewhere";
  EXPECT_EQ(statusOf(elsewhere, root(), "<key>PID</key><integer>5</integer>").pid, -1);
  fs::create_directories(file.parent_path());
  fs::create_symlink(elsewhere, file);
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt);
}

TEST_F(RouterStatusTest, APipeInTheFilesPlaceHoldsUpNobody) {
  const fs::path file = router::routerStatusFile(root());
  fs::create_directories(file.parent_path());
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt);
}

TEST_F(RouterStatusTest, WithoutARootThereIsNowhereToWrite) {
  RouterStatusFile file(platform::SystemRoot(directory_ / "missing"));
  try {
    file.write(RouterStatus());
    ADD_FAILURE() << "it was written";
  } catch (const platform::ServiceError& error) {
    EXPECT_STREQ(
        error.what(),
        "cannot write com.quillmar.hideventrouter.status.plist: No such file or directory");
  }
  file.remove();
}

std::size_t openDescriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

TEST_F(RouterStatusTest, WhatIsRemovedIsClosedToo) {
  const std::size_t before = openDescriptors();
  RouterStatusFile file(root());
  RouterStatus status;
  status.pid = ::getpid();
  for (int i = 0; i < 3; ++i) file.write(status);
  EXPECT_EQ(openDescriptors(), before + 1) << "the latest one is kept open";
  file.remove();
  EXPECT_EQ(openDescriptors(), before);
  // The same if the root has been removed in the meantime.
  file.write(status);
  const fs::path away = directory_.string() + ".away";
  fs::rename(directory_, away);
  std::ofstream(directory_) << "no directory";
  file.remove();
  EXPECT_EQ(openDescriptors(), before);
  fs::remove(directory_);
  fs::rename(away, directory_);
}

}  // namespace
