// SPDX-License-Identifier: Apache-2.0

#include "tool/report/SourceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "tool/command/Command.h"

namespace tool {

SourceFile::SourceFile(const std::string& path, std::string& problem) {
  file_.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file_ || ::fstat(file_.get(), &status) != 0) {
    problem = path + ": " + describeErrno(errno);
  } else if (!S_ISREG(status.st_mode)) {
    problem = path + ": not a regular file";
  }
}

SourceFile::SourceFile(platform::FileDescriptor file) : file_(std::move(file)) {}

void SourceFile::seekToLast(std::size_t bytes) {
  if (::lseek(file_.get(), -static_cast<off_t>(bytes), SEEK_END) < 0)
    static_cast<void>(::lseek(file_.get(), 0, SEEK_SET));
}

std::span<const std::uint8_t> SourceFile::next(std::string& problem) {
  while (true) {
    const ssize_t count = ::read(file_.get(), buffer_.data(), buffer_.size());
    if (count >= 0) return std::span(buffer_).first(static_cast<std::size_t>(count));
    if (errno == EINTR) continue;
    problem = "could not be read to the end: " + describeErrno(errno);
    return {};
  }
}

}  // namespace tool
