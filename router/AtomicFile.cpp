#include "router/AtomicFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/services/RootFiles.h"

namespace router {

namespace {

using platform::FileDescriptor;

[[noreturn]] void fail(const std::string& name, int error) {
  throw std::system_error(error, std::generic_category(), name + ": cannot be written");
}

/// What the names of all temporaries of a file begin with; the writer's process and a number
/// follow.
std::string temporaryPrefix(const std::string& name) {
  return "." + name + ".";
}

std::string temporaryName(const std::string& name) {
  static std::atomic<unsigned> counter{0};
  return temporaryPrefix(name) + std::to_string(::getpid()) + "." +
         std::to_string(counter.fetch_add(1));
}

/// Whether the process whose number `text` begins with is no more.
bool isOfDeadProcess(std::string_view text) {
  pid_t process = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), process);
  const bool isNumber = error == std::errc() && end != text.data() + text.size() && *end == '.';
  return isNumber && process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

/// 0, or the error.
int writeAndSync(int file, std::span<const std::uint8_t> content) {
  while (!content.empty()) {
    const ssize_t count = ::write(file, content.data(), content.size());
    if (count >= 0)
      content = content.subspan(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return errno;
  }
  return ::fsync(file) == 0 ? 0 : errno;
}

/// A lock of the open file, not of the process: it goes with the last descriptor, and other
/// descriptors of the file that this process opens and closes leave it alone.
struct flock wholeFile(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

/// 0, or the error.
int hold(int file) {
  struct flock lock = wholeFile(F_WRLCK);
  return ::fcntl(file, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

FileDescriptor replace(int directory, const std::string& name,
                       std::span<const std::uint8_t> content, bool isHeld) {
  const std::string temporary = temporaryName(name);
  ::unlinkat(directory, temporary.c_str(), 0);  // left by a process of the same number that died
  FileDescriptor file(::openat(directory, temporary.c_str(),
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file) fail(name, errno);
  int error = writeAndSync(file.get(), content);
  if (error == 0 && isHeld) error = hold(file.get());
  if (error == 0 && ::renameat(directory, temporary.c_str(), directory, name.c_str()) != 0)
    error = errno;
  if (error == 0) return file;
  ::unlinkat(directory, temporary.c_str(), 0);
  fail(name, error);
}

}  // namespace

void writeFileAtomically(int directory, const std::string& name,
                         std::span<const std::uint8_t> content) {
  static_cast<void>(replace(directory, name, content, false));
}

FileDescriptor writeHeldFile(int directory, const std::string& name,
                             std::span<const std::uint8_t> content) {
  return replace(directory, name, content, true);
}

bool isHeld(int file) {
  struct flock lock = wholeFile(F_RDLCK);  // asked about, never taken
  return ::fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void removeAbandonedWrites(int directory, const std::string& name) {
  const std::string prefix = temporaryPrefix(name);
  for (const std::string& other : platform::namesIn(directory)) {
    if (other.starts_with(prefix) && isOfDeadProcess(std::string_view(other).substr(prefix.size())))
      ::unlinkat(directory, other.c_str(), 0);
  }
}

}  // namespace router
