// SPDX-License-Identifier: Apache-2.0

#include "router/RouterStatus.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <utility>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/PrintableText.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/AtomicFile.h"

namespace router {

namespace {

using platform::FileDescriptor;
using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::NSPropertyListFormat;
using platform::NSPropertyListSerialization;
using platform::NSString;
using platform::objectCast;
using platform::str;

NSDictionary::Entry number(std::string_view key, std::uint64_t value) {
  return {str(key), NSNumber::numberWithUnsignedLongLong(value)};
}

std::shared_ptr<NSObject> objectOf(const SessionStatus& session) {
  std::vector<NSDictionary::Entry> entries{
      number("PID", static_cast<std::uint64_t>(session.pid)), number("UID", session.uid),
      number("Delivered", session.delivered), number("Lost", session.lost)};
  if (session.device) {
    entries.push_back(number("Device", *session.device));
    entries.emplace_back(str("DeviceName"), str(platform::printableLine(session.deviceName)));
    entries.emplace_back(str("Exclusive"), NSNumber::numberWithBool(session.exclusive));
  }
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

std::shared_ptr<NSObject> objectOf(const RouterStatus& status) {
  std::vector<std::shared_ptr<NSObject>> sessions;
  for (const SessionStatus& session : status.sessions) sessions.push_back(objectOf(session));
  return NSDictionary::dictionaryWithEntries(
      {number("PID", static_cast<std::uint64_t>(status.pid)),
       {str("Version"), str(platform::printableLine(status.version))},
       number("Lost", status.lost),
       {str("Sessions"), NSArray::arrayWithObjects(std::move(sessions))}});
}

/// Empty if the value is missing or of another type.
std::optional<std::uint64_t> numberIn(const NSDictionary& dictionary, std::string_view key) {
  const auto value = objectCast<NSNumber>(dictionary.objectForKey(key));
  return value == nullptr ? std::nullopt : std::optional(value->unsignedLongLongValue());
}

std::string textIn(const NSDictionary& dictionary, std::string_view key) {
  const auto text = objectCast<NSString>(dictionary.objectForKey(key));
  return text == nullptr ? std::string() : text->UTF8String();
}

/// −1 if it is not a process ID.
pid_t processIn(const NSDictionary& dictionary) {
  const auto value = numberIn(dictionary, "PID");
  if (!value || *value > static_cast<std::uint64_t>(std::numeric_limits<pid_t>::max())) return -1;
  return static_cast<pid_t>(*value);
}

SessionStatus sessionIn(const NSDictionary& dictionary) {
  SessionStatus session;
  session.pid = processIn(dictionary);
  session.uid = static_cast<uid_t>(numberIn(dictionary, "UID").value_or(0));
  session.device = numberIn(dictionary, "Device");
  session.deviceName = textIn(dictionary, "DeviceName");
  const auto exclusive = objectCast<NSNumber>(dictionary.objectForKey("Exclusive"));
  session.exclusive = exclusive != nullptr && exclusive->boolValue();
  session.delivered = numberIn(dictionary, "Delivered").value_or(0);
  session.lost = numberIn(dictionary, "Lost").value_or(0);
  return session;
}

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

RouterStatus statusIn(const NSDictionary& list) {
  RouterStatus status;
  status.pid = processIn(list);
  status.version = textIn(list, "Version");
  status.lost = numberIn(list, "Lost").value_or(0);
  if (const auto sessions = objectCast<NSArray>(list.objectForKey("Sessions"))) {
    sessions->enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
      if (const auto session = objectCast<NSDictionary>(member))
        status.sessions.push_back(sessionIn(*session));
    });
  }
  return status;
}

std::optional<RouterStatus> read(const SettledFile& settled) {
  const auto bytes = platform::readDescriptor(settled.file.get(), fileName(), kMaxStatusBytes);
  const auto list = objectCast<NSDictionary>(
      NSPropertyListSerialization::propertyListWithData_options_format_error(
          platform::NSData::dataWithBytes(bytes), 0, nullptr, nullptr));
  if (list == nullptr) return std::nullopt;
  RouterStatus status = statusIn(*list);
  if (status.pid <= 0) return std::nullopt;
  status.isRunning = settled.isLocked;
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
      objectOf(status), NSPropertyListFormat::XML, nullptr);
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
