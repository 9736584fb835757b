// SPDX-License-Identifier: Apache-2.0

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

[[noreturn]] void failToWrite(const std::string& name, int error) {
  throw std::system_error(error, std::generic_category(), name + ": cannot be written");
}

/// The start of all temporary names of a file; the writer's process ID and a number follow.
std::string temporaryPrefix(const std::string& name) {
  return "." + name + ".";
}

std::string temporaryName(const std::string& name) {
  static std::atomic<unsigned> counter{0};
  return temporaryPrefix(name) + std::to_string(::getpid()) + "." +
         std::to_string(counter.fetch_add(1));
}

/// Whether `text` starts with the ID of a process that no longer exists.
bool isOfDeadProcess(std::string_view text) {
  pid_t process = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), process);
  const bool isNumber = error == std::errc() && end != text.data() + text.size() && *end == '.';
  return isNumber && process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

/// A lock of the open file, not of the process: it is released with the last descriptor, and not
/// when this process opens and closes the file elsewhere.
struct flock wholeFile(short type) {
  struct flock lock {};  // from the beginning of the file, whatever its length
  lock.l_type = type;
  return lock;
}

void lockFile(int file, const std::string& name) {
  struct flock lock = wholeFile(F_WRLCK);
  if (::fcntl(file, F_OFD_SETLK, &lock) != 0) failToWrite(name, errno);
}

}  // namespace

FileDraft::FileDraft(int directory, std::string name, mode_t mode)
    : directory_(::fcntl(directory, F_DUPFD_CLOEXEC, 0)),
      name_(std::move(name)),
      hidden_(temporaryName(name_)) {
  // A dead process of the same ID may have left one.
  ::unlinkat(directory_.get(), hidden_.c_str(), 0);
  constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  file_.reset(::openat(directory_.get(), hidden_.c_str(), kFlags, mode));
  if (!file_) failToWrite(name_, errno);
}

FileDraft::~FileDraft() {
  ::unlinkat(directory_.get(), hidden_.c_str(), 0);  // already gone if the file was renamed
}

void FileDraft::append(std::span<const std::uint8_t> content) {
  while (!content.empty()) {
    const ssize_t count = ::write(file_.get(), content.data(), content.size());
    if (count >= 0)
      content = content.subspan(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      failToWrite(name_, errno);
  }
}

void FileDraft::sync() const {
  if (::fsync(file_.get()) != 0) failToWrite(name_, errno);
}

void FileDraft::replace(const std::string& name) {
  sync();
  if (::renameat(directory_.get(), hidden_.c_str(), directory_.get(), name.c_str()) != 0)
    failToWrite(name, errno);
}

bool FileDraft::take(const std::string& name) {
  sync();
  // Unlike a rename, a link fails if the name is taken.
  if (::linkat(directory_.get(), hidden_.c_str(), directory_.get(), name.c_str(), 0) == 0)
    return true;
  if (errno == EEXIST) return false;
  failToWrite(name, errno);
}

void writeFileAtomically(int directory, const std::string& name,
                         std::span<const std::uint8_t> content) {
  FileDraft draft(directory, name);
  draft.append(content);
  draft.replace(name);
}

bool createFileAtomically(int directory, const std::string& name,
                          std::span<const std::uint8_t> content) {
  FileDraft draft(directory, name);
  draft.append(content);
  return draft.take(name);
}

FileDescriptor writeLockedFile(int directory, const std::string& name,
                               std::span<const std::uint8_t> content) {
  FileDraft draft(directory, name);
  draft.append(content);
  lockFile(draft.descriptor(), name);
  draft.replace(name);
  return draft.release();
}

bool isLocked(int file) {
  struct flock lock = wholeFile(F_RDLCK);  // only queried, never taken
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
