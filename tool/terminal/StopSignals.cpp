// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/StopSignals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tool/command/Command.h"

namespace tool {

namespace {

bool isIgnored(int number) {
  struct sigaction action {};
  return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  if (!isIgnored(SIGHUP)) sigaddset(&set, SIGHUP);
  return set;
}

}  // namespace

StopSignals::StopSignals() : signals_(stopSignals()) {
  pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  descriptor_ = ::signalfd(-1, &signals_, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ < 0) throw Failure("cannot wait for signals: " + describeErrno(errno));
}

StopSignals::~StopSignals() {
  ::close(descriptor_);
}

void StopSignals::unblock() {
  signalfd_siginfo taken{};
  while (::read(descriptor_, &taken, sizeof taken) == static_cast<ssize_t>(sizeof taken)) {
  }
  pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
}

}  // namespace tool
