// SPDX-License-Identifier: Apache-2.0

// The signals that end a command, each in a process of its own.
#include "tool/terminal/StopSignals.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <functional>
#include <string>

#include "tool/terminal/StopCleanup.h"

namespace tool {
namespace {

constexpr std::array kStopSignals{SIGINT, SIGTERM, SIGHUP};

struct End {
  int status = 0;
  std::string said;
};

/// How a process that does this ends, and what it prints.
End endOf(const std::function<void(const std::function<void(char)>& say)>& act) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(30);  // in case something hangs
    // Whoever runs the tests may have them ignored, as nohup does.
    for (const int number : kStopSignals) std::signal(number, SIG_DFL);
    act([&](char c) { static_cast<void>(!::write(ends[1], &c, 1)); });
    ::_exit(0);
  }
  ::close(ends[1]);
  End end;
  for (char c = 0; ::read(ends[0], &c, 1) == 1;) end.said += c;
  ::close(ends[0]);
  ::waitpid(child, &end.status, 0);
  return end;
}

bool isReadable(int descriptor) {
  pollfd event{descriptor, POLLIN, 0};
  return ::poll(&event, 1, 0) == 1;
}

TEST(StopSignals, MakeADescriptorReadableAndTheNextOneEndsTheProcess) {
  for (const int number : kStopSignals) {
    const End end = endOf([&](const auto& say) {
      StopSignals signals;
      say(isReadable(signals.descriptor()) ? 'r' : 'n');
      ::raise(number);
      say(isReadable(signals.descriptor()) ? 'r' : 'n');
      signals.unblock();
      say(isReadable(signals.descriptor()) ? 'r' : 'n');
      ::raise(number);
      say('!');
    });
    EXPECT_EQ(end.said, "nrn") << number;
    EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == number) << end.status;
  }
}

TEST(StopSignals, AHangUpThatIsIgnoredStaysSo) {
  const End end = endOf([](const auto& say) {
    std::signal(SIGHUP, SIG_IGN);
    StopSignals signals;
    ::raise(SIGHUP);
    say(isReadable(signals.descriptor()) ? 'r' : 'n');
    ::raise(SIGTERM);
    say(isReadable(signals.descriptor()) ? 'r' : 'n');
  });
  EXPECT_EQ(end.said, "nr");
  EXPECT_TRUE(WIFEXITED(end.status)) << end.status;
}

TEST(StopSignals, AreNoOthersAndTheirDescriptorIsNotLeftOpen) {
  const End end = endOf([&](const auto& say) {
    int descriptor = -1;
    {
      const StopSignals signals;
      descriptor = signals.descriptor();
      say((::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0 ? 'c' : 'n');
      say((::fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0 ? 'b' : 'n');
    }
    say(::fcntl(descriptor, F_GETFD) == -1 ? 'g' : 'n');
    const StopSignals signals;
    ::raise(SIGUSR1);
    say('!');
  });
  EXPECT_EQ(end.said, "cbg");
  EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGUSR1) << end.status;
}

// A shell that is no terminal's ignores SIGINT for what it starts in the background.
TEST(StopCleanup, CleansUpAndEndsByTheSignalEvenAnIgnoredOne) {
  for (const int number : {SIGINT, SIGTERM}) {
    const End end = endOf([&](const auto& say) {
      std::signal(number, SIG_IGN);
      StopSignals signals;
      const StopCleanup cleanUp(signals, [&] { say('c'); });
      ::kill(::getpid(), number);  // the process, not this thread
      while (true) ::pause();
    });
    EXPECT_EQ(end.said, "c") << number;
    EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == number) << end.status;
  }
}

TEST(StopCleanup, CleansUpAtAHangUp) {
  const End end = endOf([](const auto& say) {
    StopSignals signals;
    const StopCleanup cleanUp(signals, [&] { say('c'); });
    ::kill(::getpid(), SIGHUP);
    while (true) ::pause();
  });
  EXPECT_EQ(end.said, "c");
  EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGHUP) << end.status;
}

TEST(StopCleanup, CleansUpForASignalThatCameBefore) {
  const End end = endOf([](const auto& say) {
    StopSignals signals;
    ::kill(::getpid(), SIGTERM);
    const StopCleanup cleanUp(signals, [&] { say('c'); });
    while (true) ::pause();
  });
  EXPECT_EQ(end.said, "c");
  EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGTERM) << end.status;
}

TEST(StopCleanup, CleansUpNothingWithoutASignal) {
  const End end = endOf([](const auto& say) {
    StopSignals signals;
    {
      const StopCleanup cleanUp(signals, [&] { say('c'); });
    }
    say('e');
  });
  EXPECT_EQ(end.said, "e");
  EXPECT_TRUE(WIFEXITED(end.status) && WEXITSTATUS(end.status) == 0) << end.status;
}

}  // namespace
}  // namespace tool
