// SPDX-License-Identifier: Apache-2.0

#include "router/RouterStatus.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/AtomicFile.h"

namespace router {

namespace {

using platform::FileDescriptor;
using platform::NSDictionary;
using platform::NSPropertyListFormat;
using platform::NSPropertyListSerialization;
using platform::objectCast;

constexpr std::size_t kMaxStatusBytes = std::size_t{64} << 20;

std::string fileName() {
  return std::string(WLHIDEventRouterLabel) + ".status.plist";
}

FileDescriptor runDirectory(const platform::SystemRoot& root, bool create) {
  const auto directory = platform::openRoot(root);
  return directory
             ? platform::openDirectoryBelow(directory.get(), root.places().routerStatus, create)
             : FileDescriptor();
}

FileDescriptor openFile(int directory) {
  return FileDescriptor(
      ::openat(directory, fileName().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

/// Whether the open file is the one that currently has the name.
bool isInPlace(int file, int directory) {
  struct stat own {};
  struct stat named {};
  return ::fstat(file, &own) == 0 &&
         ::fstatat(directory, fileName().c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

struct SettledFile {
  FileDescriptor file;
  bool isLocked = false;
};

/// A file that is neither locked nor in place has been replaced since it was opened, by a live
/// router; then the next one is tried, up to a limit in case it is replaced without end.
SettledFile openSettledFile(int directory) {
  constexpr int kMostTries = 100;
  SettledFile settled;
  for (int i = 0; i < kMostTries; ++i) {
    settled.file = openFile(directory);
    settled.isLocked = settled.file && isLocked(settled.file.get());
    if (!settled.file || settled.isLocked || isInPlace(settled.file.get(), directory)) break;
  }
  return settled;
}

std::optional<RouterStatus> read(const SettledFile& settled) {
  const auto bytes = platform::readDescriptor(settled.file.get(), fileName(), kMaxStatusBytes);
  const auto list = objectCast<NSDictionary>(
      NSPropertyListSerialization::propertyListWithData_options_format_error(
          platform::NSData::dataWithBytes(bytes), 0, nullptr, nullptr));
  auto status = list == nullptr ? std::nullopt : routerStatusIn(*list);
  if (status) status->isRunning = settled.isLocked;
  return status;
}

}  // namespace

std::filesystem::path routerStatusFile(const platform::SystemRoot& root) {
  return root.path() / root.places().routerStatus / fileName();
}

std::optional<RouterStatus> readRouterStatus(const platform::SystemRoot& root) try {
  const FileDescriptor directory = runDirectory(root, false);
  if (!directory) return std::nullopt;
  const SettledFile settled = openSettledFile(directory.get());
  return settled.file ? read(settled) : std::nullopt;
} catch (const platform::ServiceError&) {
  return std::nullopt;
}

RouterStatusFile::RouterStatusFile(platform::SystemRoot root) : root_(std::move(root)) {
  try {
    if (const FileDescriptor directory = runDirectory(root_, false))
      removeAbandonedWrites(directory.get(), fileName());
  } catch (const platform::ServiceError&) {
    return;  // write() will report the cause
  }
}

void RouterStatusFile::write(const RouterStatus& status) {
  const auto data = NSPropertyListSerialization::dataWithPropertyList_format_error(
      dictionaryOf(status), NSPropertyListFormat::XML, nullptr);
  const FileDescriptor directory = runDirectory(root_, true);
  if (!directory) throw platform::fileSystemError("cannot write " + fileName(), ENOENT);
  file_ = writeLockedFile(directory.get(), fileName(), data->span());
}

void RouterStatusFile::remove() try {
  const FileDescriptor directory = runDirectory(root_, false);
  if (directory && file_ && isInPlace(file_.get(), directory.get()))
    ::unlinkat(directory.get(), fileName().c_str(), 0);
  file_.reset();
} catch (const platform::ServiceError&) {
  file_.reset();  // the root has gone, and the file with it
}

}  // namespace router
