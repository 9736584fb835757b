// SPDX-License-Identifier: Apache-2.0

// Another process that has connected to a socket of the test's and does nothing.
#pragma once

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace testsupport {

class OtherProcess {
 public:
  /// As that user, if it is not the test's own, which only the superuser can do.
  explicit OtherProcess(uid_t user = ::geteuid()) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (directory_.path() / "socket").c_str(),
                 sizeof address.sun_path - 1);
    const auto* const where = reinterpret_cast<const sockaddr*>(&address);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, where, sizeof address) != 0 || ::listen(listener, 1) != 0)
      throw std::runtime_error("cannot listen");
    ::chmod(address.sun_path, 0666);
    ::chmod(directory_.path().c_str(), 0711);
    const int other = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    process_ = ::fork();
    if (process_ == 0) connectAndWait(other, where, sizeof address, user);
    ::close(other);
    pollfd connecting{listener, POLLIN, 0};
    if (::poll(&connecting, 1, 60000) == 1)
      socket_ = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    if (socket_ < 0) throw std::runtime_error("the other process does not connect");
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  ~OtherProcess() {
    end();
    ::close(socket_);
  }

  /// The test's end of the connection.
  [[nodiscard]] int socket() const { return socket_; }
  [[nodiscard]] pid_t processID() const { return process_; }
  /// Returns when it is gone.
  void end() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  [[noreturn]] static void connectAndWait(int socket, const sockaddr* where, socklen_t size,
                                          uid_t user) {
    if (user != ::geteuid() && (::setgid(user) != 0 || ::setuid(user) != 0)) ::_exit(1);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a change of the user undoes it
    if (::connect(socket, where, size) != 0) ::_exit(1);
    for (;;) ::pause();
  }

  TemporaryDirectory directory_;
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace testsupport
