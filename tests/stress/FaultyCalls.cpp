// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/FaultyCalls.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <optional>
#include <stdexcept>
#include <utility>

// The role of the program that this is compiled into.
#ifndef WLHID_FAULTY_ROLE
#define WLHID_FAULTY_ROLE None
#endif

namespace stress {
namespace {

constexpr std::uint64_t kNever = UINT64_MAX;

// Here, system calls are made without the library's functions, since this code runs inside them.

std::string ownArguments() {
  std::string text(4096, '\0');
  const int file =
      static_cast<int>(::syscall(SYS_openat, AT_FDCWD, "/proc/self/cmdline", O_RDONLY, 0));
  const long got = file < 0 ? 0 : ::syscall(SYS_read, file, text.data(), text.size());
  if (file >= 0) ::syscall(SYS_close, file);
  text.resize(static_cast<std::size_t>(std::max(got, 0L)));
  return text;
}

FaultBoard* boardAt(const std::string& path) {
  const int file = static_cast<int>(
      ::syscall(SYS_openat, AT_FDCWD, path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0));
  if (file < 0) return nullptr;
  void* const memory =
      ::mmap(nullptr, sizeof(FaultBoard), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::syscall(SYS_close, file);
  return memory == MAP_FAILED ? nullptr : static_cast<FaultBoard*>(memory);
}

/// The board of this process, or null: the file next to one of its arguments, or above.
FaultBoard* findBoard() {
  const std::string arguments = ownArguments();
  for (std::size_t begin = 0; begin < arguments.size();) {
    const std::size_t end = std::min(arguments.find('\0', begin), arguments.size());
    std::string path = arguments.substr(begin, end - begin);
    begin = end + 1;
    if (!path.starts_with('/')) continue;
    for (auto slash = path.rfind('/'); slash != std::string::npos; slash = path.rfind('/')) {
      path.resize(slash);
      if (FaultBoard* const found = boardAt(path + "/faults")) return found;
    }
  }
  return nullptr;
}

/// Set by the plan in its own process, which knows the board before any search.
std::atomic<FaultBoard*> ownBoard{nullptr};

FaultBoard* board() {
  if (FaultBoard* const own = ownBoard.load()) return own;
  static FaultBoard* const found = findBoard();
  return found;
}

constexpr unsigned bit(Fault fault) {
  return 1U << static_cast<unsigned>(fault);
}

/// The fault that this call must meet, out of those that it can meet.
std::optional<Fault> due(const char* name, unsigned possible) {
  FaultBoard* const plan = board();
  if (plan == nullptr || plan->role != static_cast<std::uint32_t>(Role::WLHID_FAULTY_ROLE))
    return std::nullopt;
  const std::uint32_t fault = plan->fault;
  if ((possible & 1U << fault) == 0) return std::nullopt;
  if (plan->calls.fetch_add(1) + 1 != plan->failing) return std::nullopt;
  for (std::size_t i = 0; i + 1 < plan->name.size() && name[i] != '\0'; ++i)
    plan->name[i] = name[i];
  plan->hits.fetch_add(1);
  return static_cast<Fault>(fault);
}

int errorOf(Fault fault) {
  switch (fault) {
    case Fault::Interrupted:
      return EINTR;
    case Fault::WouldBlock:
      return EAGAIN;
    case Fault::BrokenPipe:
      return EPIPE;
    case Fault::Reset:
      return ECONNRESET;
    case Fault::NoDescriptors:
      return EMFILE;
    case Fault::NoSpace:
      return ENOSPC;
    case Fault::Short:
    case Fault::OneByte:
      break;
  }
  return 0;
}

/// How many of `size` bytes a call that meets `fault` may move; nothing if it fails.
std::optional<std::size_t> shortened(Fault fault, std::size_t size) {
  if (fault == Fault::OneByte) return std::min<std::size_t>(size, 1);
  if (fault == Fault::Short) return std::max<std::size_t>(size / 2, std::min<std::size_t>(size, 1));
  errno = errorOf(fault);
  return std::nullopt;
}

constexpr unsigned kPartial = bit(Fault::Short) | bit(Fault::OneByte);
constexpr unsigned kFileRead = bit(Fault::Interrupted) | kPartial;
constexpr unsigned kFileWrite = bit(Fault::Interrupted) | kPartial | bit(Fault::NoSpace);
constexpr unsigned kReceive =
    bit(Fault::Interrupted) | bit(Fault::WouldBlock) | kPartial | bit(Fault::Reset);
constexpr unsigned kSend = kReceive | bit(Fault::BrokenPipe);
constexpr unsigned kOpen =
    bit(Fault::Interrupted) | bit(Fault::NoDescriptors) | bit(Fault::NoSpace);
constexpr unsigned kNewDescriptor = bit(Fault::NoDescriptors);
constexpr unsigned kName = bit(Fault::NoSpace);
constexpr unsigned kWait = bit(Fault::Interrupted);

/// Calls that succeed or fail as a whole: the result of `call`, or -1 with the error that is due.
template <class Call>
auto whole(const char* name, unsigned possible, const Call& call) -> decltype(call()) {
  if (const auto fault = due(name, possible)) {
    errno = errorOf(*fault);
    return -1;
  }
  return call();
}

/// Calls that move bytes: `call` is passed the maximum.
template <class Call>
ssize_t moving(const char* name, unsigned possible, std::size_t size, const Call& call) {
  if (const auto fault = due(name, possible)) {
    const auto less = shortened(*fault, size);
    return less ? call(*less) : -1;
  }
  return call(size);
}

std::size_t sizeOf(const msghdr& message) {
  return message.msg_iovlen == 0 ? 0 : message.msg_iov[0].iov_len;
}

}  // namespace

// ---- The plan

FaultPlan::FaultPlan(const std::filesystem::path& directory) {
  const std::string path = directory / "faults";
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, sizeof(FaultBoard)) != 0)
    throw std::runtime_error("cannot make " + path);
  void* const memory =
      ::mmap(nullptr, sizeof(FaultBoard), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (memory == MAP_FAILED) throw std::runtime_error("cannot map " + path);
  board_ = static_cast<FaultBoard*>(memory);
  disarm();
  ownBoard = board_;
}

FaultPlan::~FaultPlan() {
  ownBoard = nullptr;
  ::munmap(board_, sizeof(FaultBoard));
}

void FaultPlan::arm(Role role, Fault fault, std::uint64_t failing) {
  disarm();
  for (auto& character : board_->name) character = '\0';
  board_->calls = 0;
  board_->hits = 0;
  board_->fault = static_cast<std::uint32_t>(fault);
  board_->failing = failing == 0 ? kNever : failing;
  board_->role = static_cast<std::uint32_t>(role);
}

void FaultPlan::disarm() {
  board_->role = static_cast<std::uint32_t>(Role::None);
}

std::string FaultPlan::nameOfHit() const {
  std::string name;
  for (const auto& character : board_->name) {
    if (character == '\0') break;
    name.push_back(character);
  }
  return name;
}

}  // namespace stress

using namespace stress;  // NOLINT: the calls below must be outside any namespace

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c): the names are the linker's
#define WRAP(result, name, parameters)        \
  extern "C" result __real_##name parameters; \
  extern "C" result __wrap_##name parameters; \
  extern "C" result __wrap_##name parameters

WRAP(ssize_t, read, (int file, void* buffer, size_t size)) {
  return moving("read", kFileRead, size,
                [&](size_t less) { return __real_read(file, buffer, less); });
}
WRAP(ssize_t, pread, (int file, void* buffer, size_t size, off_t offset)) {
  return moving("pread", kFileRead, size,
                [&](size_t less) { return __real_pread(file, buffer, less, offset); });
}
WRAP(ssize_t, write, (int file, const void* buffer, size_t size)) {
  return moving("write", kFileWrite, size,
                [&](size_t less) { return __real_write(file, buffer, less); });
}
WRAP(ssize_t, recv, (int socket, void* buffer, size_t size, int flags)) {
  return moving("recv", kReceive, size,
                [&](size_t less) { return __real_recv(socket, buffer, less, flags); });
}
WRAP(ssize_t, send, (int socket, const void* buffer, size_t size, int flags)) {
  return moving("send", kSend, size,
                [&](size_t less) { return __real_send(socket, buffer, less, flags); });
}
WRAP(ssize_t, recvmsg, (int socket, msghdr* message, int flags)) {
  return moving("recvmsg", kReceive, sizeOf(*message), [&](size_t less) {
    if (message->msg_iovlen != 1) return __real_recvmsg(socket, message, flags);
    const size_t asked = std::exchange(message->msg_iov[0].iov_len, less);
    const ssize_t got = __real_recvmsg(socket, message, flags);
    message->msg_iov[0].iov_len = asked;
    return got;
  });
}
WRAP(ssize_t, sendmsg, (int socket, const msghdr* message, int flags)) {
  return moving("sendmsg", kSend, sizeOf(*message), [&](size_t less) {
    if (message->msg_iovlen != 1) return __real_sendmsg(socket, message, flags);
    const size_t asked = std::exchange(message->msg_iov[0].iov_len, less);
    const ssize_t sent = __real_sendmsg(socket, message, flags);
    message->msg_iov[0].iov_len = asked;
    return sent;
  });
}

WRAP(int, open, (const char* path, int flags, ...)) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return whole("open", kOpen, [&] { return __real_open(path, flags, mode); });
}
WRAP(int, openat, (int directory, const char* path, int flags, ...)) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return whole("openat", kOpen, [&] { return __real_openat(directory, path, flags, mode); });
}
WRAP(int, fcntl, (int file, int command, ...)) {
  va_list more;
  va_start(more, command);
  void* const argument = va_arg(more, void*);
  va_end(more);
  const unsigned possible = command == F_DUPFD || command == F_DUPFD_CLOEXEC ? kNewDescriptor : 0U;
  return whole("fcntl", possible, [&] { return __real_fcntl(file, command, argument); });
}
WRAP(int, socket, (int family, int type, int protocol)) {
  return whole("socket", kNewDescriptor, [&] { return __real_socket(family, type, protocol); });
}
WRAP(int, accept4, (int socket, sockaddr* address, socklen_t* length, int flags)) {
  return whole(
      "accept4",
      kNewDescriptor | bit(Fault::Interrupted) | bit(Fault::WouldBlock) | bit(Fault::Reset),
      [&] { return __real_accept4(socket, address, length, flags); });
}
WRAP(int, connect, (int socket, const sockaddr* address, socklen_t length)) {
  return whole("connect", bit(Fault::Interrupted) | bit(Fault::WouldBlock) | bit(Fault::Reset),
               [&] { return __real_connect(socket, address, length); });
}
WRAP(int, pipe2, (int* ends, int flags)) {
  return whole("pipe2", kNewDescriptor, [&] { return __real_pipe2(ends, flags); });
}
WRAP(int, eventfd, (unsigned count, int flags)) {
  return whole("eventfd", kNewDescriptor, [&] { return __real_eventfd(count, flags); });
}
WRAP(int, epoll_create1, (int flags)) {
  return whole("epoll_create1", kNewDescriptor, [&] { return __real_epoll_create1(flags); });
}
WRAP(int, epoll_ctl, (int epoll, int operation, int file, epoll_event* event)) {
  return whole("epoll_ctl", kName, [&] { return __real_epoll_ctl(epoll, operation, file, event); });
}
WRAP(int, epoll_wait, (int epoll, epoll_event* events, int most, int timeout)) {
  return whole("epoll_wait", kWait,
               [&] { return __real_epoll_wait(epoll, events, most, timeout); });
}
WRAP(int, memfd_create, (const char* name, unsigned flags)) {
  return whole("memfd_create", kNewDescriptor, [&] { return __real_memfd_create(name, flags); });
}
WRAP(int, inotify_init1, (int flags)) {
  return whole("inotify_init1", kNewDescriptor, [&] { return __real_inotify_init1(flags); });
}
WRAP(int, signalfd, (int file, const sigset_t* mask, int flags)) {
  return whole("signalfd", kNewDescriptor, [&] { return __real_signalfd(file, mask, flags); });
}
WRAP(int, pidfd_open, (pid_t process, unsigned flags)) {
  return whole("pidfd_open", kNewDescriptor, [&] { return __real_pidfd_open(process, flags); });
}

WRAP(int, bind, (int socket, const sockaddr* address, socklen_t length)) {
  return whole("bind", kName, [&] { return __real_bind(socket, address, length); });
}
WRAP(int, fsync, (int file)) {
  return whole("fsync", kName | bit(Fault::Interrupted), [&] { return __real_fsync(file); });
}
WRAP(int, fchmod, (int file, mode_t mode)) {
  return whole("fchmod", kName, [&] { return __real_fchmod(file, mode); });
}
WRAP(int, mkdirat, (int directory, const char* name, mode_t mode)) {
  return whole("mkdirat", kName, [&] { return __real_mkdirat(directory, name, mode); });
}
WRAP(int, renameat, (int from, const char* name, int to, const char* newName)) {
  return whole("renameat", kName, [&] { return __real_renameat(from, name, to, newName); });
}
WRAP(int, rename, (const char* name, const char* newName)) {
  return whole("rename", kName, [&] { return __real_rename(name, newName); });
}
WRAP(int, unlinkat, (int directory, const char* name, int flags)) {
  return whole("unlinkat", kName, [&] { return __real_unlinkat(directory, name, flags); });
}

WRAP(int, poll, (pollfd * entries, nfds_t count, int timeout)) {
  return whole("poll", kWait, [&] { return __real_poll(entries, count, timeout); });
}
WRAP(int, waitid, (idtype_t type, id_t id, siginfo_t* info, int options)) {
  return whole("waitid", kWait, [&] { return __real_waitid(type, id, info, options); });
}
WRAP(pid_t, waitpid, (pid_t process, int* status, int options)) {
  return whole("waitpid", kWait, [&] { return __real_waitpid(process, status, options); });
}
WRAP(pid_t, fork, ()) {
  return whole("fork", bit(Fault::WouldBlock), [&] { return __real_fork(); });
}
WRAP(int, posix_spawn,
     (pid_t * process, const char* path, const posix_spawn_file_actions_t* actions,
      const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment)) {
  if (const auto fault = due("posix_spawn", bit(Fault::WouldBlock) | bit(Fault::NoDescriptors)))
    return errorOf(*fault);
  return __real_posix_spawn(process, path, actions, attributes, arguments, environment);
}
WRAP(int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*entry)(void*),
      void* argument)) {
  if (due("pthread_create", bit(Fault::WouldBlock))) return EAGAIN;
  return __real_pthread_create(thread, attributes, entry, argument);
}
// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c)
