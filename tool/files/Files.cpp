// SPDX-License-Identifier: Apache-2.0

#include "tool/files/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tool/command/Command.h"

namespace tool {

namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return number_; }

 private:
  const int number_;
};

/// The size of the regular file that is open as `descriptor`.
std::size_t sizeOfRegularFile(int descriptor, const std::string& path, std::size_t limit) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) throw Failure(path + ": " + describeErrno(errno));
  if (S_ISDIR(status.st_mode)) throw Failure(path + ": " + describeErrno(EISDIR));
  if (!S_ISREG(status.st_mode)) throw Failure(path + ": not a regular file");
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > limit) throw Failure(path + ": larger than " + std::to_string(limit >> 20) + " MiB");
  return size;
}

void readFully(int descriptor, std::span<std::uint8_t> into, const std::string& path) {
  std::size_t done = 0;
  while (done < into.size()) {
    const ssize_t count = ::read(descriptor, into.data() + done, into.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw Failure(path + ": " + describeErrno(errno));
    if (count == 0) throw Failure(path + ": became shorter while it was read");
    done += static_cast<std::size_t>(count);
  }
}

}  // namespace

std::shared_ptr<platform::NSData> readWholeFile(const std::string& path, std::size_t limit) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.get() < 0) throw Failure(path + ": " + describeErrno(errno));
  const std::size_t size = sizeOfRegularFile(file.get(), path, limit);
  return platform::NSData::dataWithLength(
      size, [&](std::span<std::uint8_t> into) { readFully(file.get(), into, path); });
}

}  // namespace tool
