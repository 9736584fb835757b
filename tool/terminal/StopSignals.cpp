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

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGHUP);
  return set;
}

}  // namespace

StopSignals::StopSignals() {
  const sigset_t set = stopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  descriptor_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ < 0) throw Failure("cannot wait for signals: " + describeErrno(errno));
}

StopSignals::~StopSignals() {
  ::close(descriptor_);
}

void StopSignals::unblock() {
  signalfd_siginfo taken{};
  while (::read(descriptor_, &taken, sizeof taken) == static_cast<ssize_t>(sizeof taken)) {
  }
  const sigset_t set = stopSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace tool
