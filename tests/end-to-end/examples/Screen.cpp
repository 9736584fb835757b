// SPDX-License-Identifier: Apache-2.0

#include "tests/end-to-end/examples/Screen.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>

#include "tests/support/ChildProcess.h"

namespace test {
namespace {

/// The server writes the number that it has chosen once it listens, and nothing if it cannot.
std::string numberFrom(int descriptor) {
  const std::unique_ptr<FILE, int (*)(FILE*)> stream(::fdopen(descriptor, "r"), &std::fclose);
  std::array<char, 32> line{};
  if (std::fgets(line.data(), line.size(), stream.get()) == nullptr) return {};
  const std::string number = line.data();
  return number.substr(0, number.find('\n'));
}

}  // namespace

Screen::Screen() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return;
  const auto [ours, its] = ends;
  server_ = ::fork();
  if (server_ == 0) {
    testsupport::ChildProcess::dieWithParent();
    ::dup2(its, 3);
    ::execlp("Xvfb", "Xvfb", "-displayfd", "3", "-screen", "0", "1000x700x24", "-nolisten", "tcp",
             "-noreset", nullptr);
    ::_exit(127);
  }
  ::close(its);
  const std::string number = numberFrom(ours);
  if (!number.empty()) name_ = ":" + number;
}

Screen::~Screen() {
  if (server_ <= 0) return;
  ::kill(server_, SIGTERM);
  ::waitpid(server_, nullptr, 0);
}

}  // namespace test
