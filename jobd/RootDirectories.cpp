// SPDX-License-Identifier: Apache-2.0

#include "jobd/RootDirectories.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace jobd {
namespace {

using platform::FileDescriptor;
using platform::ServiceError;
using platform::ServiceErrorCode;

FileDescriptor openChecked(const FileDescriptor& root, const std::string& first,
                           const std::string& second) {
  const auto parent = platform::openDirectoryBelow(root.get(), first, true);
  platform::checkIsOwn(parent.get(), first);
  auto directory = platform::openDirectoryBelow(parent.get(), second, true);
  platform::checkIsOwn(directory.get(), first + "/" + second);
  return directory;
}

}  // namespace

RootDirectories RootDirectories::open(const platform::SystemRoot& root) {
  if (root.isSystem()) {
    throw ServiceError(
        ServiceErrorCode::NotSupported,
        "the system's own root has a daemon that systemd starts (wlhid-jobd.socket)");
  }
  RootDirectories directories;
  directories.root = platform::openOwnRoot(root);
  directories.jobs = openChecked(directories.root, "Library", "LaunchDaemons");
  directories.tools = openChecked(directories.root, "Library", "PrivilegedHelperTools");
  directories.run = openChecked(directories.root, "var", "run");
  directories.log = openChecked(directories.root, "var", "log");
  return directories;
}

RootDirectories RootDirectories::openSystem(const platform::SystemRoot& root) {
  const platform::SystemPlaces& places = root.places();
  RootDirectories directories;
  directories.root = platform::openRoot(root);
  directories.jobs = platform::openPlace(directories.root.get(), places.layers.front().jobs, true);
  directories.tools =
      platform::openPlace(directories.root.get(), places.layers.front().helpers, true);
  directories.staging = platform::openPlace(directories.root.get(), places.staging, true);
  if (::fchmod(directories.staging.get(), 0700) != 0)
    throw platform::fileSystemError("cannot close the directory " + std::string(places.staging),
                                    errno);
  return directories;
}

}  // namespace jobd
