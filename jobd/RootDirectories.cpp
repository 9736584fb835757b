#include "jobd/RootDirectories.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace jobd {
namespace {

using platform::FileDescriptor;
using platform::ServiceError;
using platform::ServiceErrorCode;

void checkIsOurs(int directory, const std::string& name) {
  struct stat status {};
  if (::fstat(directory, &status) != 0)
    throw platform::fileSystemError("cannot examine " + name, errno);
  if (status.st_uid != ::geteuid()) {
    throw ServiceError(ServiceErrorCode::NotPermitted,
                       name + " belongs to user " + std::to_string(status.st_uid) +
                           ", not to user " + std::to_string(::geteuid()) +
                           ", who runs the job daemon");
  }
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw ServiceError(ServiceErrorCode::NotPermitted,
                       name + " can be written by others (chmod go-w would mend it)");
  }
}

FileDescriptor openRootItself(const platform::SystemRoot& root) {
  FileDescriptor directory = platform::openRoot(root);
  if (!directory) {
    std::error_code error;
    std::filesystem::create_directories(root.path(), error);
    directory = platform::openRoot(root);
  }
  if (!directory)
    throw platform::fileSystemError("cannot make the system root " + root.path().string(), ENOENT);
  checkIsOurs(directory.get(), "the system root " + root.path().string());
  return directory;
}

FileDescriptor openChecked(const FileDescriptor& root, const std::string& first,
                           const std::string& second) {
  const auto parent = platform::openDirectoryBelow(root.get(), first, true);
  checkIsOurs(parent.get(), first);
  auto directory = platform::openDirectoryBelow(parent.get(), second, true);
  checkIsOurs(directory.get(), first + "/" + second);
  return directory;
}

}  // namespace

RootDirectories RootDirectories::open(const platform::SystemRoot& root) {
  if (root.isSystem()) {
    throw ServiceError(ServiceErrorCode::NotSupported,
                       "the system root's jobs belong to the system's own service manager");
  }
  RootDirectories directories;
  directories.root = openRootItself(root);
  directories.jobs = openChecked(directories.root, "Library", "LaunchDaemons");
  directories.tools = openChecked(directories.root, "Library", "PrivilegedHelperTools");
  directories.run = openChecked(directories.root, "var", "run");
  directories.log = openChecked(directories.root, "var", "log");
  return directories;
}

}  // namespace jobd
