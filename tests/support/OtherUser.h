// SPDX-License-Identifier: Apache-2.0

// Acting as another user, which only the superuser can do. Tests that need it run in two ways: as
// the superuser with a second user, and otherwise with what an ordinary user can do.
#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <string>

namespace testsupport {

/// A user who owns nothing.
inline constexpr uid_t kOtherUser = 12345;

[[nodiscard]] inline bool isSuperuser() {
  return ::geteuid() == 0;
}

/// Runs `act` in a process of that user and returns its result (up to a pipe's capacity).
inline std::string asUser(uid_t user, const std::function<std::string()>& act) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    std::string said = "cannot become another user";
    if (::setgid(user) == 0 && ::setuid(user) == 0) said = act();
    ::_exit(::write(ends[1], said.data(), said.size()) == static_cast<ssize_t>(said.size()) ? 0
                                                                                            : 1);
  }
  ::close(ends[1]);
  std::string said;
  std::array<char, 4096> buffer{};
  for (ssize_t got = 0; (got = ::read(ends[0], buffer.data(), buffer.size())) > 0;)
    said.append(buffer.data(), static_cast<std::size_t>(got));
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  return said;
}

}  // namespace testsupport
