// SPDX-License-Identifier: Apache-2.0

// A pseudo-terminal that collects what is written to it.
//
// Threading: one thread.
// Ownership: owns both ends.
// Errors: the test fails if it cannot be opened.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <string>

namespace tool {

class PseudoTerminal {
 public:
  PseudoTerminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
    std::array<char, 64> name{};
    EXPECT_EQ(::grantpt(master_), 0);
    EXPECT_EQ(::unlockpt(master_), 0);
    EXPECT_EQ(::ptsname_r(master_, name.data(), name.size()), 0);
    slave_ = ::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    ::tcgetattr(slave_, &settings);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    ::tcsetattr(slave_, TCSANOW, &settings);
  }
  ~PseudoTerminal() {
    ::close(slave_);
    ::close(master_);
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  [[nodiscard]] int descriptor() const { return slave_; }
  void setColumns(unsigned short columns) const {
    const winsize size{24, columns, 0, 0};
    EXPECT_EQ(::ioctl(slave_, TIOCSWINSZ, &size), 0);
  }
  /// What has been written since the last call.
  [[nodiscard]] std::string shown() const {
    std::string text;
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = ::read(master_, buffer.data(), buffer.size())) > 0;)
      text.append(buffer.data(), static_cast<std::size_t>(got));
    return text;
  }

 private:
  int master_;
  int slave_ = -1;
};

/// While it lives, `stream` is `descriptor`.
class Redirected {
 public:
  Redirected(int stream, int descriptor) : stream_(stream), before_(::dup(stream)) {
    ::dup2(descriptor, stream);
  }
  ~Redirected() {
    ::dup2(before_, stream_);
    ::close(before_);
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;

 private:
  const int stream_;
  const int before_;
};

}  // namespace tool
