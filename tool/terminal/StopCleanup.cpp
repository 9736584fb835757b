// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/StopCleanup.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "tool/command/Command.h"

namespace tool {

namespace {

/// Ends the process as the signal would have ended it.
[[noreturn]] void endBy(int number) {
  std::signal(number, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, number);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  ::raise(number);
  ::_exit(128 + number);  // not reached: these signals end the process
}

}  // namespace

StopCleanup::StopCleanup(StopSignals& signals, std::function<void()> cleanUp)
    : cleanUp_(std::move(cleanUp)),
      signals_(signals),
      over_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!over_) throw Failure("cannot make an event descriptor: " + describeErrno(errno));
  thread_ = std::thread([this] { watch(); });
}

StopCleanup::~StopCleanup() {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(over_.get(), &one, sizeof one));
  thread_.join();
}

void StopCleanup::watch() const {
  std::array<pollfd, 2> events{pollfd{signals_.descriptor(), POLLIN, 0},
                               pollfd{over_.get(), POLLIN, 0}};
  while (::poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
  }
  signalfd_siginfo taken{};
  if (::read(signals_.descriptor(), &taken, sizeof taken) != static_cast<ssize_t>(sizeof taken))
    return;
  cleanUp_();
  endBy(static_cast<int>(taken.ssi_signo));
}

}  // namespace tool
