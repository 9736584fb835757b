// SPDX-License-Identifier: Apache-2.0

#include "jobd/GrantFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <span>
#include <string>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace jobd {
namespace {

using platform::DeviceGrant;
using platform::FileDescriptor;
using platform::fileSystemError;
using platform::kGrantFile;

constexpr const char* kDraft = ".grants.draft";

/// The name is for people only.
bool isSame(const DeviceGrant& one, const DeviceGrant& other) {
  return one.user == other.user && one.device == other.device;
}

void writeAll(int file, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw fileSystemError("cannot write the grants", errno);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

/// Complete and on disk when this returns.
void writeDraft(int directory, std::span<const std::uint8_t> bytes) {
  ::unlinkat(directory, kDraft, 0);
  const FileDescriptor draft(
      ::openat(directory, kDraft, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!draft) throw fileSystemError("cannot write the grants", errno);
  writeAll(draft.get(), bytes);
  if (::fchmod(draft.get(), 0644) != 0 || ::fsync(draft.get()) != 0)
    throw fileSystemError("cannot write the grants", errno);
}

}  // namespace

void GrantFile::grant(const DeviceGrant& grant) const {
  auto grants = platform::readDeviceGrants(root_);
  const auto known = std::find_if(grants.begin(), grants.end(),
                                  [&](const auto& each) { return isSame(each, grant); });
  if (known == grants.end())
    grants.push_back(grant);
  else
    *known = grant;
  write(grants);
}

void GrantFile::revoke(const DeviceGrant& grant) const {
  auto grants = platform::readDeviceGrants(root_);
  if (std::erase_if(grants, [&](const auto& each) { return isSame(each, grant); }) == 0)
    throw platform::ServiceError(platform::ServiceErrorCode::InvalidArgument,
                                 "there is no such grant any more");
  write(grants);
}

void GrantFile::discardDraft() const {
  const auto directory = platform::openPlace(root_, platform::kGrantDirectory);
  if (directory) ::unlinkat(directory.get(), kDraft, 0);
}

void GrantFile::write(const std::vector<DeviceGrant>& grants) const {
  const auto bytes = platform::encodeDeviceGrants(grants);
  const auto directory = platform::openPlace(root_, platform::kGrantDirectory, true);
  writeDraft(directory.get(), bytes);
  if (::renameat(directory.get(), kDraft, directory.get(), kGrantFile) != 0)
    throw fileSystemError("cannot put the grants in place", errno);
  if (::fsync(directory.get()) != 0) throw fileSystemError("cannot write the grants", errno);
}

}  // namespace jobd
