// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/TrustedDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "platform/services/RootFiles.h"

namespace router {

namespace {

using platform::FileDescriptor;

[[noreturn]] void refuse(int error, const std::string& path) {
  throw std::system_error(error, std::generic_category(), path);
}

FileDescriptor openTrusted(int parent, const std::string& name) {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor directory(::openat(parent, name.c_str(), kFlags));
  struct stat status {};
  if (!directory || ::fstat(directory.get(), &status) != 0) refuse(errno, name);
  const bool isOthers = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  if (isOthers || !platform::isTrustedUser(status.st_uid)) refuse(EPERM, name);
  return directory;
}

/// Takes the part up to the next slash, and the slash.
std::string takePart(std::string_view* path, std::string_view whole) {
  const auto slash = path->find('/');
  std::string part(path->substr(0, slash));
  if (part.empty() || part == "." || part == "..") refuse(EPERM, std::string(whole));
  path->remove_prefix(slash == std::string_view::npos ? path->size() : slash + 1);
  return part;
}

}  // namespace

TrustedPlace openDirectoryOf(const std::string& path, const std::string& top) {
  if (!path.starts_with(top + "/") || path.ends_with('/')) refuse(EPERM, path);
  FileDescriptor directory = openTrusted(AT_FDCWD, top);
  std::string_view left = std::string_view(path).substr(top.size() + 1);
  for (;;) {
    std::string part = takePart(&left, path);
    if (left.empty()) return {std::move(directory), std::move(part)};
    directory = openTrusted(directory.get(), part);
  }
}

}  // namespace router
