// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/jobd/FileOperations.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <new>
#include <utility>

namespace {

bool isRecording = false;

std::vector<ssize_t> writeLimits;
std::vector<ssize_t> readLimits;
int statusAfterWriting = -1;

/// How many of `size` bytes the next call may move; -1 and errno if it is to fail.
ssize_t allowed(std::vector<ssize_t>& limits, size_t size) {
  if (limits.empty()) return static_cast<ssize_t>(size);
  const ssize_t limit = limits.front();
  limits.erase(limits.begin());
  if (limit >= 0) return std::min(limit, static_cast<ssize_t>(size));
  errno = static_cast<int>(-limit);
  return -1;
}

/// Shared by all processes that are forked after the first use.
std::atomic<int>& operationsLeft() {
  static auto* const shared = new (::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                                          MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>(0);
  return *shared;
}
bool isCounting = false;
bool diesAfter = false;
bool groupDies = false;

/// An operation that may be the process's last, before or after it.
class Operation {
 public:
  explicit Operation(bool counts = true)
      : isLast_(isCounting && counts && operationsLeft().fetch_sub(1) == 1) {
    if (isLast_ && !diesAfter) die();
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation() {
    if (isLast_) die();
  }

 private:
  static void die() { ::kill(groupDies ? 0 : ::getpid(), SIGKILL); }

  bool isLast_;
};

std::vector<std::string>& operations() {
  static std::vector<std::string> list;
  return list;
}

std::string nameOf(int descriptor) {
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  std::array<char, 4096> target{};
  const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
  const std::string path(target.data(), static_cast<std::size_t>(length > 0 ? length : 0));
  return path.substr(path.rfind('/') + 1);
}

bool isFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

void note(const std::string& operation) {
  if (!isRecording) return;
  if (operations().empty() || operations().back() != operation) operations().push_back(operation);
}

}  // namespace

namespace fileoperations {

void record() {
  operations().clear();
  isRecording = true;
}

std::vector<std::string> recorded() {
  isRecording = false;
  return operations();
}

void limitWrites(std::vector<ssize_t> limits) {
  writeLimits = std::move(limits);
}

void limitReads(std::vector<ssize_t> limits) {
  readLimits = std::move(limits);
}

void dieAt(int count, bool isAfter, Dies who) {
  operationsLeft() = count;
  isCounting = count > 0;
  diesAfter = isAfter;
  groupDies = who == Dies::Group;
}

bool hasDied() {
  return operationsLeft() <= 0;
}

void exitAfterWriting(int status) {
  statusAfterWriting = status;
}

}  // namespace fileoperations

// The linker prefers these to the C library's.
extern "C" {

ssize_t write(int descriptor, const void* bytes, size_t size) {
  if (isRecording) note("write " + nameOf(descriptor));
  const Operation operation(isCounting && isFile(descriptor));
  const ssize_t most = allowed(writeLimits, size);
  const ssize_t written = most < 0 ? -1 : ::syscall(SYS_write, descriptor, bytes, most);
  if (statusAfterWriting >= 0) ::_exit(statusAfterWriting);
  return written;
}

ssize_t read(int descriptor, void* bytes, size_t size) {
  const ssize_t most = allowed(readLimits, size);
  return most < 0 ? -1 : ::syscall(SYS_read, descriptor, bytes, most);
}

int fchmod(int descriptor, mode_t mode) noexcept {
  if (isRecording) note("mode " + nameOf(descriptor));
  const Operation operation;
  return static_cast<int>(::syscall(SYS_fchmod, descriptor, mode));
}

int fsync(int descriptor) {
  if (isRecording) note("sync " + nameOf(descriptor));
  const Operation operation;
  return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
  if (isRecording) note("rename " + std::string(from) + " " + to);
  const Operation operation;
  return static_cast<int>(::syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, 0));
}

int openat(int directory, const char* name, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  const Operation operation((flags & O_CREAT) != 0);
  return static_cast<int>(::syscall(SYS_openat, directory, name, flags, mode));
}

int mkdirat(int directory, const char* name, mode_t mode) noexcept {
  const Operation operation;
  return static_cast<int>(::syscall(SYS_mkdirat, directory, name, mode));
}

int unlinkat(int directory, const char* name, int flags) noexcept {
  const Operation operation;
  return static_cast<int>(::syscall(SYS_unlinkat, directory, name, flags));
}

}  // extern "C"
