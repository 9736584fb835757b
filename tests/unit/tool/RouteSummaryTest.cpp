// SPDX-License-Identifier: Apache-2.0

// The header and the last line of a routing session, and what the router lost.
#include "tool/routing/RouteSummary.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "platform/services/FileDescriptor.h"
#include "router/RouterStatus.h"
#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

using namespace std::chrono_literals;

TEST(RouteHeader, NamesTheDeviceInPrintableText) {
  EXPECT_TRUE(
      routeHeader("Mouse\x1b[2J\n", 0x17).starts_with("Mouse\\x1b[2J\\x0a (0x17); Ctrl-C ends it"));
  EXPECT_EQ(routeHeader("", 0x17),
            "Device 0x17; Ctrl-C ends it. Released keys and buttons are left out.\n"
            "  SECONDS  WHAT     ID  BYTES, OR VALUES BY NAME\n");
}

TEST(RouteSummary, TellsReportsRateAndLosses) {
  EXPECT_EQ(routeSummary(8, 500ms, Losses{0, true}),
            "8 reports in 0.50 s, 16.0 per second; none lost\n");
  EXPECT_EQ(routeSummary(1, 500ms, Losses{3, false}), "1 report in 0.50 s; 3 lost\n");
  EXPECT_EQ(routeSummary(0, 0s, std::nullopt), "0 reports in 0.00 s\n");
  EXPECT_EQ(routeSummary(2, 0s, std::nullopt), "2 reports in 0.00 s\n");
  EXPECT_EQ(routeSummary(2, 1s, Losses{3, true}),
            "2 reports in 1.00 s, 2.0 per second; 3 lost, by all sessions together\n");
}

TEST(LossText, SaysWhoseTheyMayBe) {
  EXPECT_EQ(lossText({0, true}), "0 lost") << "nobody's";
  EXPECT_EQ(lossText({3, false}), "3 lost");
  EXPECT_EQ(lossText({3, true}), "3 lost, by all sessions together");
}

/// How often a directory was opened since.
class Looks {
 public:
  explicit Looks(const std::filesystem::path& directory) {
    EXPECT_GE(::inotify_add_watch(watch_.get(), directory.c_str(), IN_OPEN | IN_ONLYDIR), 0);
  }
  void await(int count) const {
    for (inotify_event event{}; count > 0; --count) {
      pollfd ready{watch_.get(), POLLIN, 0};
      if (::poll(&ready, 1, 10'000) != 1) return;
      EXPECT_EQ(::read(watch_.get(), &event, sizeof event), static_cast<ssize_t>(sizeof event));
    }
  }

 private:
  const platform::FileDescriptor watch_{::inotify_init1(IN_CLOEXEC)};
};

class LossCountTest : public testing::Test {
 protected:
  void write(std::uint64_t lost, std::vector<pid_t> sessions = {},
             pid_t router = ::getpid()) const {
    ::router::RouterStatus status;
    status.pid = router;
    status.lost = lost;
    for (const pid_t pid : sessions) {
      status.sessions.emplace_back();
      status.sessions.back().pid = pid;
    }
    file->write(status);
  }
  void SetUp() override {
    std::filesystem::create_directories(::router::routerStatusFile(root).parent_path());
    file.emplace(root);
  }
  mutable std::optional<::router::RouterStatusFile> file;
  const testsupport::TemporaryDirectory directory;
  const platform::SystemRoot root{directory.path()};
};

TEST_F(LossCountTest, CountsWhatWasLostMeanwhile) {
  write(5);
  const LossCount count(root);
  write(7);
  ASSERT_TRUE(count.take());
  EXPECT_EQ(count.take()->reports, 2U);
  EXPECT_FALSE(count.take()->ofOthersToo);
}

TEST_F(LossCountTest, SaysWhereOthersWereRouting) {
  const LossCount count(root);
  write(7, {1});
  ASSERT_TRUE(count.take());
  EXPECT_EQ(count.take()->reports, 7U);
  EXPECT_TRUE(count.take()->ofOthersToo);
}

TEST_F(LossCountTest, IsNothingWithoutTheRoutersWord) {
  const LossCount count(root);
  EXPECT_FALSE(count.take()) << "no router";
  write(7, {::getpid()});
  EXPECT_FALSE(count.take()) << "it has not noticed the end";
}

TEST_F(LossCountTest, WaitsForTheFirstWordOfARouterThatHasJustStarted) {
  const LossCount count(root);
  const Looks looks(::router::routerStatusFile(root).parent_path());
  std::thread starting([&] {
    looks.await(2);
    write(3);
  });
  const auto losses = count.take();
  starting.join();
  ASSERT_TRUE(losses);
  EXPECT_EQ(losses->reports, 3U);
}

TEST_F(LossCountTest, IsNothingWhereTheRouterHasGone) {
  write(5);
  const LossCount count(root);
  file->remove();
  EXPECT_FALSE(count.take());
}

TEST_F(LossCountTest, IsNothingWhereAnotherRouterHasTakenOver) {
  write(5);
  const LossCount count(root);
  write(7, {}, ::getppid());
  EXPECT_FALSE(count.take());
}

TEST_F(LossCountTest, OfARunningSessionIsKnownAtAnyTime) {
  LossWatch watch(root);
  EXPECT_FALSE(watch.losses()) << "no router";
  write(5, {::getpid()});
  EXPECT_EQ(watch.losses()->reports, 0U) << "what was lost before is not counted";
  write(7, {::getpid()});
  EXPECT_EQ(watch.losses()->reports, 2U);
  EXPECT_FALSE(watch.losses()->ofOthersToo) << "nobody else is routing";
  write(1, {::getpid()}, ::getppid());
  EXPECT_EQ(watch.losses()->reports, 0U) << "another router has taken over";
}

TEST_F(LossCountTest, OfARunningSessionMayBeThoseOfOthers) {
  write(5, {::getpid(), 1});
  LossWatch watch(root);
  write(7, {::getpid()});
  ASSERT_TRUE(watch.losses());
  EXPECT_TRUE(watch.losses()->ofOthersToo) << "who has ended meanwhile may have lost them";
}

}  // namespace
}  // namespace tool
