// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/jobd/FileOperations.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
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

int operationsLeft = 0;  // 0: nobody dies
bool diesAfter = false;

/// An operation that may be the process's last, before or after it.
class Operation {
 public:
  Operation() : isLast_(operationsLeft > 0 && --operationsLeft == 0) {
    if (isLast_ && !diesAfter) ::raise(SIGKILL);
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation() {
    if (isLast_) ::raise(SIGKILL);
  }

 private:
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

void dieAt(int count, bool isAfter) {
  operationsLeft = count;
  diesAfter = isAfter;
}

void exitAfterWriting(int status) {
  statusAfterWriting = status;
}

}  // namespace fileoperations

// The linker prefers these to the C library's.
extern "C" {

ssize_t write(int descriptor, const void* bytes, size_t size) {
  if (isRecording) note("write " + nameOf(descriptor));
  const Operation operation;
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

int unlinkat(int directory, const char* name, int flags) noexcept {
  const Operation operation;
  return static_cast<int>(::syscall(SYS_unlinkat, directory, name, flags));
}

}  // extern "C"
