// SPDX-License-Identifier: Apache-2.0

#include "tool/files/NewFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "tool/command/Command.h"
#include "tool/command/Numbers.h"

namespace tool {

namespace {

std::string temporaryName() {
  std::uint64_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number))
    throw Failure("cannot make a temporary name: " + describeErrno(errno));
  return ".wlhid-" + hexadecimal(number).substr(2) + ".part";
}

/// The directory that holds `path`.
std::string directoryOf(const std::filesystem::path& path) {
  const std::string directory = path.parent_path();
  return directory.empty() ? "." : directory;
}

}  // namespace

NewFile::NewFile(std::string path) : path_(std::move(path)) {
  const std::filesystem::path place(path_);
  name_ = place.filename();
  if (name_.empty() || name_ == "." || name_ == "..") fail(EISDIR);
  directory_.reset(::open(directoryOf(place).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory_) fail(errno);
  struct stat status {};
  if (::fstatat(directory_.get(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISDIR(status.st_mode)) fail(EISDIR);
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
      throw Failure(path_ + ": not a regular file, and is not replaced");
  } else if (errno != ENOENT) {
    fail(errno);
  }
  create();
}

void NewFile::create() {
  constexpr int kTries = 16;
  for (int i = 0; i < kTries && !file_; ++i) {
    temporary_ = temporaryName();
    file_.reset(::openat(directory_.get(), temporary_.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file_ && errno != EEXIST) break;
  }
  if (file_) return;
  const int error = errno;
  temporary_.clear();
  fail(error);
}

NewFile::~NewFile() {
  discard();
}

void NewFile::fail(int error) const {
  throw Failure(path_ + ": " + describeErrno(error));
}

void NewFile::write(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(errno);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

void NewFile::keep() {
  if (::fsync(file_.get()) != 0) fail(errno);
  if (::close(file_.release()) != 0) fail(errno);
  {
    const std::lock_guard lock(mutex_);
    if (temporary_.empty()) fail(ECANCELED);
    if (::renameat(directory_.get(), temporary_.c_str(), directory_.get(), name_.c_str()) != 0)
      fail(errno);
    temporary_.clear();
  }
  // The file is in place and complete; a failure to persist its name changes nothing.
  static_cast<void>(::fsync(directory_.get()));
}

void NewFile::discard() noexcept {
  const std::lock_guard lock(mutex_);
  if (temporary_.empty()) return;
  ::unlinkat(directory_.get(), temporary_.c_str(), 0);
  temporary_.clear();
}

}  // namespace tool
