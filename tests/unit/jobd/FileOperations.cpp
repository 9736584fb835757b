#include "tests/unit/jobd/FileOperations.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace {

bool isRecording = false;

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

}  // namespace fileoperations

// The linker prefers these to the system library's.
extern "C" {

ssize_t write(int descriptor, const void* bytes, size_t size) {
  if (isRecording) note("write " + nameOf(descriptor));
  return ::syscall(SYS_write, descriptor, bytes, size);
}

int fchmod(int descriptor, mode_t mode) noexcept {
  if (isRecording) note("mode " + nameOf(descriptor));
  return static_cast<int>(::syscall(SYS_fchmod, descriptor, mode));
}

int fsync(int descriptor) {
  if (isRecording) note("sync " + nameOf(descriptor));
  return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
  if (isRecording) note("rename " + std::string(from) + " " + to);
  return static_cast<int>(::syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, 0));
}

}  // extern "C"
