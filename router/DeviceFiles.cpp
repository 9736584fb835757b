#include "router/DeviceFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "router/AtomicFile.h"

namespace router {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSuffix = ".plist";

std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

[[noreturn]] void fail(const std::string& what, int error) {
  const std::error_code code(error, std::generic_category());
  throw FileError(what + ": " + code.message(), code);
}

std::optional<FileStamp> stampOf(const fs::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  return FileStamp::of(status);
}

OpenFile openRegularFile(const fs::path& file) {
  OpenFile opened;
  opened.descriptor.reset(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!opened.descriptor) fail("cannot be read", errno);
  struct stat status {};
  if (::fstat(opened.descriptor.get(), &status) != 0) fail("cannot be read", errno);
  if (!S_ISREG(status.st_mode)) throw FileError("is no regular file");
  opened.stamp = FileStamp::of(status);
  return opened;
}

bool isConfiguration(const std::string& fileName) {
  return fileName.size() > kSuffix.size() && fileName.front() != '.' && fileName.ends_with(kSuffix);
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

std::vector<std::string> DeviceFiles::configurations(std::size_t limit,
                                                     std::vector<std::string>* problems) const {
  std::error_code error;
  std::vector<std::string> names;
  for (fs::directory_iterator entry(directory_, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!isConfiguration(name)) continue;
    if (names.size() == limit) {
      problems->push_back(directory_.string() + ": holds more than " + std::to_string(limit) +
                          " configurations; the others are left out");
      break;
    }
    names.push_back(name.substr(0, name.size() - kSuffix.size()));
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    problems->push_back(directory_.string() + ": " + error.message());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string DeviceFiles::configurationPath(const std::string& name) const {
  return (directory_ / (name + std::string(kSuffix))).string();
}

std::optional<FileStamp> DeviceFiles::configurationStamp(const std::string& name) const {
  return stampOf(configurationPath(name));
}

OpenFile DeviceFiles::openConfiguration(const std::string& name) const {
  return openRegularFile(configurationPath(name));
}

void DeviceFiles::writeConfiguration(const std::string& name,
                                     std::span<const std::uint8_t> content) const {
  try {
    writeFileAtomically(configurationPath(name), content);
  } catch (const std::system_error& error) {
    fail("cannot be written", error.code().value());
  }
}

bool DeviceFiles::createConfiguration(const std::string& name,
                                      std::span<const std::uint8_t> content) const {
  // Written under a hidden name, which no listing shows, and linked: that fails where the name is
  // taken, also by somebody who adds a device at the same moment.
  const fs::path file = configurationPath(name);
  const fs::path hidden =
      directory_ / ("." + name + "." + std::to_string(::getpid()) + std::string(kSuffix));
  try {
    writeFileAtomically(hidden, content);
  } catch (const std::system_error& error) {
    fail("cannot be written", error.code().value());
  }
  const bool linked = ::link(hidden.c_str(), file.c_str()) == 0;
  const int cause = errno;
  ::unlink(hidden.c_str());
  if (!linked && cause != EEXIST) fail("cannot be made", cause);
  return linked;
}

bool DeviceFiles::removeConfiguration(const std::string& name) const {
  if (name.find('/') != std::string::npos) return false;
  if (::unlink(configurationPath(name).c_str()) == 0) return true;
  if (errno == ENOENT) return false;
  fail("cannot be removed", errno);
}

std::optional<FileStamp> DeviceFiles::recordingStamp(const fs::path& file) {
  return stampOf(file);
}

OpenFile DeviceFiles::openRecording(const fs::path& file) {
  return openRegularFile(file);
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
