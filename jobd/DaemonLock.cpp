// SPDX-License-Identifier: Apache-2.0

#include "jobd/DaemonLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"

namespace jobd {
namespace {

constexpr std::chrono::milliseconds kTimeout{10'000};
constexpr std::chrono::milliseconds kPause{10};

bool isServed(int runDirectory) {
  return static_cast<bool>(
      platform::connectUnixSocketAt(runDirectory, "jobd.sock", SOCK_STREAM | SOCK_NONBLOCK));
}

}  // namespace

std::optional<DaemonLock> DaemonLock::acquire(int runDirectory) {
  platform::FileDescriptor file(::openat(
      runDirectory, "jobd.lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!file) throw platform::fileSystemError("cannot open jobd.lock", errno);
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR)
      throw platform::fileSystemError("cannot lock jobd.lock", errno);
    if (isServed(runDirectory)) return std::nullopt;
    if (std::chrono::steady_clock::now() > deadline) {
      throw platform::ServiceError(platform::ServiceErrorCode::TimedOut,
                                   "another job daemon holds the root but does not answer");
    }
    // No single event covers both the release of the lock and the endpoint coming up.
    std::this_thread::sleep_for(kPause);
  }
  return DaemonLock(std::move(file));
}

}  // namespace jobd
