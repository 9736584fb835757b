// SPDX-License-Identifier: Apache-2.0

#include "tool/files/GrowingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "tool/command/Command.h"
#include "tool/terminal/Output.h"

namespace tool {

GrowingFile::GrowingFile(std::string path)
    : path_(std::move(path)),
      file_(::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600)) {
  if (file_) return;
  if (errno == EEXIST)
    throw Failure(path_ + ": exists already, and is not overwritten; choose another name");
  fail(errno);
}

void GrowingFile::fail(int error) const {
  throw Failure(path_ + ": " + describeErrno(error));
}

void GrowingFile::write(std::string_view text) {
  Output output(file_.get());
  if (output.write(text)) return;
  finish();
  fail(output.failure());
}

std::uint64_t GrowingFile::size() const {
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0) fail(errno);
  return static_cast<std::uint64_t>(status.st_size);
}

std::uint64_t GrowingFile::endOfLastLine() const {
  std::array<char, 65536> buffer;
  for (std::uint64_t end = size(); end > 0;) {
    const std::uint64_t begin = end - std::min<std::uint64_t>(end, buffer.size());
    const ssize_t count =
        ::pread(file_.get(), buffer.data(), end - begin, static_cast<off_t>(begin));
    if (count < 0) fail(errno);
    const std::string_view text(buffer.data(), static_cast<std::size_t>(count));
    const std::size_t last = text.rfind('\n');
    if (last != std::string_view::npos) return begin + last + 1;
    end = begin;
  }
  return 0;
}

std::uint64_t GrowingFile::finish() {
  const std::uint64_t end = endOfLastLine();
  if (::ftruncate(file_.get(), static_cast<off_t>(end)) != 0) fail(errno);
  if (::fsync(file_.get()) != 0) fail(errno);
  return end;
}

void GrowingFile::remove() noexcept {
  ::unlink(path_.c_str());
}

}  // namespace tool
