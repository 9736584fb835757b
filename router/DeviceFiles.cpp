// SPDX-License-Identifier: Apache-2.0

#include "router/DeviceFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace router {

namespace {

namespace fs = std::filesystem;
using platform::FileDescriptor;

constexpr std::string_view kSuffix = ".plist";
constexpr std::string_view kConfigurations = "etc/hideventrouter";
constexpr std::string_view kRecordings = "etc/hideventrouter/recordings";
/// The hidden names of drafts are derived from this.
constexpr const char* kDraft = "recording";

std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

[[noreturn]] void fail(const std::string& what, int error) {
  const std::error_code code(error, std::generic_category());
  throw FileError(what + ": " + code.message(), code);
}

bool isLink(int directory, const std::string& name) {
  struct stat status {};
  return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISLNK(status.st_mode);
}

std::optional<FileStamp> stampOf(int directory, const std::string& name) {
  struct stat status {};
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return FileStamp::of(status);
}

constexpr int kOpenFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

OpenFile requireRegular(FileDescriptor descriptor) {
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0) fail("cannot be read", errno);
  if (!S_ISREG(status.st_mode)) throw FileError("is not a regular file");
  return {std::move(descriptor), FileStamp::of(status), status.st_mode};
}

OpenFile openRegularFile(int directory, const std::string& name) {
  FileDescriptor file(::openat(directory, name.c_str(), kOpenFlags | O_NOFOLLOW));
  const int cause = errno;
  if (!file && isLink(directory, name))
    throw FileError("is a symbolic link, which is not followed");
  if (!file) fail("cannot be read", cause);
  return requireRegular(std::move(file));
}

/// False if it does not exist.
bool removeFile(int directory, const std::string& name) {
  if (::unlinkat(directory, name.c_str(), 0) == 0) return true;
  if (errno == ENOENT) return false;
  fail("cannot be removed", errno);
}

bool isConfiguration(const std::string& fileName) {
  return !fileName.starts_with('.') && fileName.ends_with(kSuffix);
}

std::string fileNameOf(const std::string& configuration) {
  return configuration + std::string(kSuffix);
}

}  // namespace

FileStamp FileStamp::of(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
          nanoseconds(status.st_ctim)};
}

bool FileStamp::isOlderThan(std::chrono::milliseconds age) const {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now) - changed >= std::chrono::nanoseconds(age).count();
}

/// Empty if it does not exist.
FileDescriptor DeviceFiles::directory(std::string_view path) const try {
  const FileDescriptor root = platform::openRoot(root_);
  return root ? platform::openDirectoryBelow(root.get(), path, false) : FileDescriptor();
} catch (const platform::ServiceError& error) {
  throw FileError(error.what());
}

/// Created if it does not exist.
FileDescriptor DeviceFiles::ownDirectory(std::string_view path) const try {
  return platform::openDirectoryBelow(platform::openOwnRoot(root_).get(), path, true);
} catch (const platform::ServiceError& error) {
  throw FileError(error.what());
}

std::vector<std::string> DeviceFiles::configurations(std::size_t limit,
                                                     std::vector<std::string>* problems) const try {
  const FileDescriptor opened = directory(kConfigurations);
  std::vector<std::string> names;
  if (!opened) return names;
  for (const std::string& name : platform::namesIn(opened.get())) {
    if (!isConfiguration(name)) continue;
    if (names.size() == limit) {
      problems->push_back(root_.deviceSources().string() + ": holds more than " +
                          std::to_string(limit) + " configurations; the others are left out");
      break;
    }
    names.push_back(name.substr(0, name.size() - kSuffix.size()));
  }
  std::sort(names.begin(), names.end());
  return names;
} catch (const FileError& error) {
  problems->push_back(root_.deviceSources().string() + ": " + error.what());
  return {};
}

std::string DeviceFiles::configurationPath(const std::string& name) const {
  return (root_.deviceSources() / fileNameOf(name)).string();
}

std::optional<FileStamp> DeviceFiles::configurationStamp(const std::string& name) const try {
  const FileDescriptor opened = directory(kConfigurations);
  return opened ? stampOf(opened.get(), fileNameOf(name)) : std::nullopt;
} catch (const FileError&) {
  return std::nullopt;  // opening it will report the cause
}

OpenFile DeviceFiles::openConfiguration(const std::string& name) const {
  const FileDescriptor opened = directory(kConfigurations);
  if (!opened) fail("cannot be read", ENOENT);
  return openRegularFile(opened.get(), fileNameOf(name));
}

void DeviceFiles::writeConfiguration(const std::string& name,
                                     std::span<const std::uint8_t> content) const try {
  writeFileAtomically(ownDirectory(kConfigurations).get(), fileNameOf(name), content);
} catch (const std::system_error& error) {
  throw FileError(error.what(), error.code());
}

bool DeviceFiles::createConfiguration(const std::string& name,
                                      std::span<const std::uint8_t> content) const try {
  return createFileAtomically(ownDirectory(kConfigurations).get(), fileNameOf(name), content);
} catch (const std::system_error& error) {
  throw FileError(error.what(), error.code());
}

bool DeviceFiles::removeConfiguration(const std::string& name) const {
  if (name.find('/') != std::string::npos) return false;
  const FileDescriptor opened = directory(kConfigurations);
  return opened && removeFile(opened.get(), fileNameOf(name));
}

bool DeviceFiles::isRecordingName(std::string_view name) {
  return platform::SystemRoot::isValidLabel(name);
}

std::string DeviceFiles::recordingPath(const std::string& name) const {
  const fs::path path = root_.path() / kRecordings;
  return (name.empty() ? path : path / name).string();
}

std::optional<FileStamp> DeviceFiles::recordingStamp(const std::string& name) const try {
  if (!isRecordingName(name)) return std::nullopt;
  const FileDescriptor opened = directory(kRecordings);
  return opened ? stampOf(opened.get(), name) : std::nullopt;
} catch (const FileError&) {
  return std::nullopt;  // opening it will report the cause
}

OpenFile DeviceFiles::openRecording(const std::string& name) const {
  if (!isRecordingName(name)) throw FileError("is not a valid name of a recording");
  const FileDescriptor opened = directory(kRecordings);
  if (!opened) fail("cannot be read", ENOENT);
  return openRegularFile(opened.get(), name);
}

FileDraft DeviceFiles::draftRecording(mode_t mode) const {
  const FileDescriptor opened = ownDirectory(kRecordings);
  removeAbandonedWrites(opened.get(), kDraft);
  return {opened.get(), kDraft, mode};
}

bool DeviceFiles::removeRecording(const std::string& name) const {
  if (!isRecordingName(name)) return false;
  const FileDescriptor opened = directory(kRecordings);
  return opened && removeFile(opened.get(), name);
}

OpenFile openFile(const fs::path& path) {
  FileDescriptor file(::open(path.c_str(), kOpenFlags));
  if (!file) fail("cannot be read", errno);
  return requireRegular(std::move(file));
}

std::size_t readFile(int descriptor, std::span<char> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = ::read(descriptor, buffer.data() + filled, buffer.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("cannot be read", errno);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return filled;
}

bool haveSameContent(int one, int other) {
  std::vector<char> first(std::size_t{64} << 10);
  std::vector<char> second(first.size());
  ::lseek(one, 0, SEEK_SET);
  ::lseek(other, 0, SEEK_SET);
  for (std::size_t length = first.size(); length == first.size();) {
    length = readFile(one, first);
    if (readFile(other, second) != length ||
        !std::equal(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(length),
                    second.begin()))
      return false;
  }
  return true;
}

}  // namespace router
