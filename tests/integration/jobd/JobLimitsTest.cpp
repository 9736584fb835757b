// SPDX-License-Identifier: Apache-2.0

// Limits of a job and its daemon, and sockets that must be left alone.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/fanotify.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <thread>
#include <vector>

#include "platform/services/UnixSocket.h"
#include "tests/integration/jobd/SuiteFixture.h"

namespace {

using namespace jobdtest;
using platform::ServiceErrorCode;
using testing::HasSubstr;

class JobLimits : public JobdSuite {};

TEST_F(JobLimits, ASocketWhoseBacklogIsFullIsListenedOnToo) {
  ASSERT_TRUE(bless(echoImage("1.0")).succeeded());
  const std::string taken = "com.quillmar.echo.taken";
  const platform::FileDescriptor listener(
      platform::listenUnixSocket(root.endpoint(taken).string(), SOCK_STREAM, 0, 0600));
  const platform::FileDescriptor waiting(
      platform::connectUnixSocket(root.endpoint(taken).string(), SOCK_STREAM | SOCK_NONBLOCK));
  ASSERT_TRUE(waiting);
  const auto refused = bless(image({kEchoLabel, "2.0", ECHO_HELPER, {kEchoLabel, taken}}));
  EXPECT_EQ(refused.code, ServiceErrorCode::Busy);
  EXPECT_EQ(refused.message,
            "another process listens on the service com.quillmar.echo.taken; end it first");
}

TEST_F(JobLimits, ASocketWhoseMakerHasGoneIsReplacedWhoeverHoldsIt) {
  ASSERT_TRUE(bless(echoImage("1.0")).succeeded());
  const std::string left = "com.quillmar.echo.left";
  std::array<int, 2> held{};
  ASSERT_EQ(::pipe2(held.data(), O_CLOEXEC), 0);
  const pid_t maker = ::fork();
  if (maker == 0) {
    const platform::FileDescriptor listener(
        platform::listenUnixSocket(root.endpoint(left).string(), SOCK_STREAM, 8, 0600));
    ::close(held[1]);
    char c = 0;
    if (::fork() == 0) static_cast<void>(::read(held[0], &c, 1));  // until the test closes its end
    ::_exit(listener ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(maker, &status, 0), maker);
  ASSERT_EQ(status, 0);
  EXPECT_TRUE(bless(image({kEchoLabel, "2.0", ECHO_HELPER, {kEchoLabel, left}})).succeeded());
  EXPECT_EQ(connect(left).ask("service"), left);
  ::close(held[0]);
  ::close(held[1]);
}

TEST_F(JobLimits, SoManyConnectionsWaitForAJobThatCannotTakeThem) {
  ASSERT_TRUE(bless(image({kEchoLabel, "1.0", CRASH_HELPER, {}})).succeeded());
  const auto connects = [&] {
    return platform::FileDescriptor(platform::connectUnixSocket(root.endpoint(kEchoLabel).string(),
                                                                SOCK_STREAM | SOCK_NONBLOCK));
  };
  std::vector<platform::FileDescriptor> waiting;
  for (int i = 0; i < 129; ++i) ASSERT_TRUE(waiting.emplace_back(connects())) << i;
  EXPECT_FALSE(connects());
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(JobLimits, WhatWasLeftOutIsSaidBeforeTheEnd) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  EXPECT_EQ(connect().ask("flood 20000"), "ok");
  const Process process = daemonProcess();
  process.signal(SIGTERM);
  ASSERT_TRUE(process.hasGone());
  EXPECT_THAT(log(), HasSubstr(" lines of com.quillmar.echo were left out: "));
}

TEST_F(JobLimits, OnlySoManyHelpersAreCopiedAtATime) {
  const platform::FileDescriptor guard(
      ::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY | O_LARGEFILE));
  ASSERT_TRUE(bless(echoImage()).succeeded());
  std::vector<std::thread> hung;
  for (int i = 0; i < 4; ++i) {
    const std::string label = "com.hung" + std::to_string(i);
    const auto image = this->image({label, "1.0", ECHO_HELPER, {}});
    if (!guard ||
        ::fanotify_mark(guard.get(), FAN_MARK_ADD, FAN_ACCESS_PERM, AT_FDCWD, image.c_str()) != 0)
      GTEST_SKIP() << "needs the superuser";
    hung.emplace_back([this, image, label] { EXPECT_FALSE(bless(image, label).succeeded()); });
    pollfd asked{guard.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&asked, 1, kTimeoutMilliseconds), 1);
    fanotify_event_metadata event{};
    EXPECT_EQ(::read(guard.get(), &event, sizeof event), static_cast<ssize_t>(sizeof event));
    ::close(event.fd);
  }
  const auto refused = bless(echoImage("2.0"));
  EXPECT_EQ(refused.code, ServiceErrorCode::Busy);
  EXPECT_EQ(refused.message, "too many helpers are being installed; try again");
  const Process process = daemonProcess();
  process.signal(SIGTERM);
  EXPECT_TRUE(process.hasGone());
  for (auto& each : hung) each.join();
}

}  // namespace
