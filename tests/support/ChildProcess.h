// SPDX-License-Identifier: Apache-2.0

// A process that does some work of the test's and is killed in the end, or when the test's dies.
#pragma once

#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <utility>

namespace testsupport {

class ChildProcess {
 public:
  /// A change of the user undoes dieWithParent(), so such work calls it again.
  explicit ChildProcess(const std::function<void()>& work) : process_(::fork()) {
    if (process_ < 0) throw std::runtime_error("cannot start a process");
    if (process_ != 0) return;
    dieWithParent();
    work();
    ::_exit(0);
  }
  ChildProcess(ChildProcess&& other) noexcept : process_(std::exchange(other.process_, -1)) {}
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess() {
    if (process_ < 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  [[nodiscard]] pid_t processID() const { return process_; }

  static void dieWithParent() { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }

 private:
  pid_t process_;
};

}  // namespace testsupport
