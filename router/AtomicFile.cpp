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

namespace router {

namespace {

[[noreturn]] void fail(const std::filesystem::path& file, int error) {
  throw std::system_error(error, std::generic_category(), file.string() + ": cannot be written");
}

/// What the names of all temporaries of `file` begin with; the writer's process and a number
/// follow.
std::string temporaryPrefix(const std::filesystem::path& file) {
  return "." + file.filename().string() + ".";
}

std::filesystem::path temporaryName(const std::filesystem::path& file) {
  static std::atomic<unsigned> counter{0};
  return file.parent_path() / (temporaryPrefix(file) + std::to_string(::getpid()) + "." +
                               std::to_string(counter.fetch_add(1)));
}

/// Whether the process whose number `text` begins with is no more.
bool isOfDeadProcess(std::string_view text) {
  pid_t process = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), process);
  const bool isNumber = error == std::errc() && end != text.data() + text.size() && *end == '.';
  return isNumber && process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

/// 0, or the error. Closes `fd`.
int writeAndClose(int fd, std::span<const std::uint8_t> content) {
  int error = 0;
  while (!content.empty() && error == 0) {
    const ssize_t count = ::write(fd, content.data(), content.size());
    if (count >= 0)
      content = content.subspan(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      error = errno;
  }
  if (error == 0 && ::fsync(fd) != 0) error = errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  return error;
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& file, std::span<const std::uint8_t> content) {
  std::filesystem::create_directories(file.parent_path());
  const std::filesystem::path temporary = temporaryName(file);
  ::unlink(temporary.c_str());  // left by a process of the same number that died
  const int fd =
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd < 0) fail(file, errno);
  int error = writeAndClose(fd, content);
  if (error == 0 && ::rename(temporary.c_str(), file.c_str()) != 0) error = errno;
  if (error == 0) return;
  ::unlink(temporary.c_str());
  fail(file, error);
}

void removeAbandonedWrites(const std::filesystem::path& file) {
  const std::string prefix = temporaryPrefix(file);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(file.parent_path(), error), end;
       !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.starts_with(prefix) && isOfDeadProcess(std::string_view(name).substr(prefix.size())))
      ::unlink(entry->path().c_str());
  }
}

}  // namespace router
