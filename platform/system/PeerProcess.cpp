// SPDX-License-Identifier: Apache-2.0

#include "platform/system/PeerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/foundation/PrintableText.h"
#include "platform/system/ProcessFiles.h"

namespace platform::system {
namespace {

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77  // on all processors that this is built for
#endif

constexpr std::size_t kMaximumProgramCharacters = 200;
constexpr std::size_t kMaximumUnitCharacters = 200;
constexpr std::size_t kMaximumFileBytes = 16384;

std::string because(const char* what, int error) {
  return std::string(what) + ": " + std::generic_category().message(error);
}

FileDescriptor processOfSocket(int socket) {
  int descriptor = -1;
  socklen_t size = sizeof descriptor;
  const bool isKnown = ::getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &descriptor, &size) == 0;
  return FileDescriptor(isKnown ? descriptor : -1);
}

FileDescriptor openProcess(pid_t processID) {
  return FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, processID, 0)));
}

bool isRunning(int process) {
  pollfd poll{process, POLLIN, 0};
  int ready = 0;
  do {
    ready = ::poll(&poll, 1, 0);
  } while (ready < 0 && errno == EINTR);
  return ready == 0;
}

/// The directory stays that of the process which has the number now.
FileDescriptor openFiles(pid_t processID) {
  const std::string path = "/proc/" + std::to_string(processID);
  return FileDescriptor(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

/// The path may only be read by those who may also trace the process; its arguments by everybody.
std::string programIn(int files) {
  std::array<char, 4096> path{};
  const ssize_t length = ::readlinkat(files, "exe", path.data(), path.size());
  std::string text;
  if (length > 0) text.assign(path.data(), static_cast<std::size_t>(length));
  if (text.empty()) text = firstArgument(readStart(files, "cmdline", kMaximumFileBytes));
  if (text.empty()) {
    text = readStart(files, "comm", kMaximumFileBytes);
    if (text.ends_with('\n')) text.pop_back();
  }
  return printableLine(text, kMaximumProgramCharacters);
}

std::string unitOf(pid_t processID) {
  char* unit = nullptr;
  if (sd_pid_get_user_unit(processID, &unit) < 0 && sd_pid_get_unit(processID, &unit) < 0)
    return {};
  std::string text = printableLine(unit, kMaximumUnitCharacters);
  std::free(unit);
  return text;
}

}  // namespace

std::optional<PeerProcess> PeerProcess::ofSocket(int socket, std::string& whyNot) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    whyNot = because("the kernel does not name the process", errno);
    return std::nullopt;
  }
  return ofProcess(credentials.pid, credentials.uid, processOfSocket(socket), whyNot);
}

std::optional<PeerProcess> PeerProcess::ofProcess(pid_t processID, uid_t user,
                                                  FileDescriptor process, std::string& whyNot) {
  const auto no = [&](std::string why) {
    whyNot = std::move(why);
    return std::nullopt;
  };
  // A process in another container's numbering has no number here.
  if (processID <= 0) return no("the process has no number in this system");
  if (!process) process = openProcess(processID);
  if (!process) return no(because("the process cannot be opened", errno));
  const FileDescriptor files = openFiles(processID);
  if (!files) return no(because("the process cannot be looked at", errno));

  PeerProcess peer;
  const auto startTime = startTimeInStat(readStart(files.get(), "stat", kMaximumFileBytes));
  const auto owner = effectiveUserInStatus(readStart(files.get(), "status", kMaximumFileBytes));
  if (!startTime || !owner) return no("the process has ended, or /proc hides it");
  if (*owner != user) return no("the process is not the peer's user's any more");
  peer.processID_ = processID;
  peer.user_ = user;
  peer.startTime_ = *startTime;
  peer.program_ = programIn(files.get());
  peer.unit_ = unitOf(processID);
  peer.process_ = std::make_shared<const FileDescriptor>(std::move(process));
  // As long as it runs, nobody else had its number.
  if (!peer.isAlive()) return no("the process has ended");
  return peer;
}

bool PeerProcess::isAlive() const {
  return isRunning(process_->get());
}

}  // namespace platform::system
