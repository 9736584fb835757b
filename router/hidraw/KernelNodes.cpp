// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/KernelNodes.h"

#include <fcntl.h>
#include <linux/hidraw.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "router/hidraw/TrustedDirectory.h"

namespace router {

namespace {

[[noreturn]] void failOnNode(int error) {
  throw std::system_error(error, std::generic_category());
}

}  // namespace

platform::FileDescriptor KernelNodes::open(const std::string& node) const {
  constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY;
  const TrustedPlace place = openDirectoryOf(node, "/dev");
  platform::FileDescriptor opened(::openat(place.directory.get(), place.name.c_str(), kFlags));
  if (!opened) failOnNode(errno);
  return opened;
}

bool KernelNodes::mayRead(const std::string& node) const try {
  const TrustedPlace place = openDirectoryOf(node, "/dev");
  return ::faccessat(place.directory.get(), place.name.c_str(), R_OK,
                     AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0;
} catch (const std::system_error&) {
  return false;
}

std::optional<dev_t> KernelNodes::numberOf(int descriptor) const {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISCHR(status.st_mode)) return std::nullopt;
  return status.st_rdev;
}

std::vector<std::uint8_t> KernelNodes::reportDescriptor(int descriptor) const {
  int size = 0;
  if (::ioctl(descriptor, HIDIOCGRDESCSIZE, &size) < 0) failOnNode(errno);
  hidraw_report_descriptor report{};
  if (size <= 0 || static_cast<std::size_t>(size) > sizeof report.value) failOnNode(EMSGSIZE);
  report.size = static_cast<std::uint32_t>(size);
  if (::ioctl(descriptor, HIDIOCGRDESC, &report) < 0) failOnNode(errno);
  return {std::begin(report.value), std::begin(report.value) + size};
}

void KernelNodes::grab(int descriptor) const {
  if (::ioctl(descriptor, EVIOCGRAB, 1) < 0) failOnNode(errno);
}

ssize_t KernelNodes::read(int descriptor, std::span<std::uint8_t> buffer) const {
  const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
  return count < 0 ? -errno : count;
}

}  // namespace router
