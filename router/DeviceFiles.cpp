#include "router/DeviceFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "router/AtomicFile.h"

namespace router {

namespace {

namespace fs = std::filesystem;
using platform::FileDescriptor;

constexpr std::string_view kSuffix = ".plist";
constexpr std::string_view kDirectory = "etc/hideventrouter";

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

OpenFile openRegularFile(int directory, const std::string& name) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  OpenFile opened;
  opened.descriptor.reset(::openat(directory, name.c_str(), kFlags));
  const int cause = errno;
  if (!opened.descriptor && isLink(directory, name))
    throw FileError("is a symbolic link, which is not followed");
  if (!opened.descriptor) fail("cannot be read", cause);
  struct stat status {};
  if (::fstat(opened.descriptor.get(), &status) != 0) fail("cannot be read", errno);
  if (!S_ISREG(status.st_mode)) throw FileError("is no regular file");
  opened.stamp = FileStamp::of(status);
  return opened;
}

/// The directory that the file lies in.
FileDescriptor openParent(const fs::path& file) {
  FileDescriptor parent(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  fs::path reached = "/";
  for (const auto& component : file.parent_path().relative_path()) {
    reached /= component;
    FileDescriptor next(
        ::openat(parent.get(), component.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int cause = errno;
    if (!next && isLink(parent.get(), component.string())) {
      throw FileError("lies behind the symbolic link " + reached.string() +
                      ", which is not followed");
    }
    if (!next) fail("cannot be read", cause);
    parent = std::move(next);
  }
  return parent;
}

bool isConfiguration(const std::string& fileName) {
  return fileName.size() > kSuffix.size() && fileName.front() != '.' && fileName.ends_with(kSuffix);
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

/// Empty where there is none.
FileDescriptor DeviceFiles::directory() const try {
  const FileDescriptor root = platform::openRoot(root_);
  return root ? platform::openDirectoryBelow(root.get(), kDirectory, false) : FileDescriptor();
} catch (const platform::ServiceError& error) {
  throw FileError(error.what());
}

/// Made where it is missing.
FileDescriptor DeviceFiles::ownDirectory() const try {
  return platform::openDirectoryBelow(platform::openOwnRoot(root_).get(), kDirectory, true);
} catch (const platform::ServiceError& error) {
  throw FileError(error.what());
}

std::vector<std::string> DeviceFiles::configurations(std::size_t limit,
                                                     std::vector<std::string>* problems) const try {
  const FileDescriptor opened = directory();
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
  const FileDescriptor opened = directory();
  return opened ? stampOf(opened.get(), fileNameOf(name)) : std::nullopt;
} catch (const FileError&) {
  return std::nullopt;  // opening it will say why
}

OpenFile DeviceFiles::openConfiguration(const std::string& name) const {
  const FileDescriptor opened = directory();
  if (!opened) fail("cannot be read", ENOENT);
  return openRegularFile(opened.get(), fileNameOf(name));
}

void DeviceFiles::writeConfiguration(const std::string& name,
                                     std::span<const std::uint8_t> content) const try {
  writeFileAtomically(ownDirectory().get(), fileNameOf(name), content);
} catch (const std::system_error& error) {
  throw FileError(error.what(), error.code());
}

bool DeviceFiles::createConfiguration(const std::string& name,
                                      std::span<const std::uint8_t> content) const try {
  return createFileAtomically(ownDirectory().get(), fileNameOf(name), content);
} catch (const std::system_error& error) {
  throw FileError(error.what(), error.code());
}

bool DeviceFiles::removeConfiguration(const std::string& name) const {
  if (name.find('/') != std::string::npos) return false;
  const FileDescriptor opened = directory();
  if (!opened || ::unlinkat(opened.get(), fileNameOf(name).c_str(), 0) == 0)
    return static_cast<bool>(opened);
  if (errno == ENOENT) return false;
  fail("cannot be removed", errno);
}

std::optional<FileStamp> DeviceFiles::recordingStamp(const fs::path& file) try {
  return stampOf(openParent(file).get(), file.filename().string());
} catch (const FileError&) {
  return std::nullopt;  // opening it will say why
}

OpenFile DeviceFiles::openRecording(const fs::path& file) {
  return openRegularFile(openParent(file).get(), file.filename().string());
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

}  // namespace router
