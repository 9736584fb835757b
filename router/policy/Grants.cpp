// SPDX-License-Identifier: Apache-2.0

#include "router/policy/Grants.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "router/RouterLimits.h"

namespace router {
namespace {

constexpr const char* kDirectory = "var/lib/wlhid";
constexpr const char* kFile = "grants.plist";

[[noreturn]] void refuse(const std::string& why) {
  throw platform::ServiceError(platform::ServiceErrorCode::NotPermitted, why);
}

}  // namespace

bool Grants::covers(uid_t user, const platform::DeviceIdentity& device) {
  std::string problem;
  bool isCovered = false;
  {
    const std::lock_guard lock(mutex_);
    Known now = look(known_);
    const bool isNews = now.problem != known_.problem || now.stamp != known_.stamp;
    if (isNews) problem = now.problem;
    known_ = std::move(now);
    isCovered = std::any_of(known_.grants.begin(), known_.grants.end(),
                            [&](const auto& each) { return each.covers(user, device); });
  }
  if (!problem.empty()) log_(platform::LogLine::of<row::grantsIgnored>(problem));
  return isCovered;
}

Grants::Known Grants::look(const Known& before) const try {
  const auto file = open();
  if (!file) return {};
  if (before.isSettled && before.stamp == file->stamp) return before;
  return read(*file);
} catch (const platform::ServiceError& error) {
  Known unusable;
  unusable.problem = error.what();
  return unusable;
}

Grants::Known Grants::read(const File& file) const {
  Known known;
  known.stamp = file.stamp;
  known.isSettled = file.stamp.isOlderThan(RouterLimits().settling);
  const auto bytes =
      platform::readDescriptor(file.descriptor.get(), kFile, platform::kMaximumGrantFileBytes);
  std::string reason;
  if (auto grants = platform::parseDeviceGrants(bytes, &reason))
    known.grants = std::move(*grants);
  else
    known.problem = std::string(kFile) + ": " + reason;
  return known;
}

std::optional<Grants::File> Grants::open() const {
  const auto root = platform::openRoot(root_);
  const auto directory = root ? platform::openDirectoryBelow(root.get(), kDirectory, false)
                              : platform::FileDescriptor();
  if (!directory) return std::nullopt;
  checkIsOwners(directory.get(), kDirectory);
  File file{platform::FileDescriptor(
                ::openat(directory.get(), kFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)),
            {}};
  if (!file.descriptor && errno == ENOENT) return std::nullopt;
  if (!file.descriptor) refuse(std::string(kFile) + ": " + std::generic_category().message(errno));
  checkIsOwners(file.descriptor.get(), kFile);
  struct stat status {};
  if (::fstat(file.descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode))
    refuse(std::string(kFile) + ": it is not a regular file");
  file.stamp = FileStamp::of(status);
  return file;
}

/// Whoever else can write it could grant anything.
void Grants::checkIsOwners(int descriptor, const std::string& name) const {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0)
    refuse(name + ": " + std::generic_category().message(errno));
  if (status.st_uid != owner_)
    refuse(name + ": it belongs to user " + std::to_string(status.st_uid) + ", not to user " +
           std::to_string(owner_));
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) refuse(name + ": others may write it");
}

}  // namespace router
