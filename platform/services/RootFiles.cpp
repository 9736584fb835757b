// SPDX-License-Identifier: Apache-2.0

#include "platform/services/RootFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>

#include "platform/services/ServiceError.h"
#include "platform/services/UserNamespace.h"

namespace platform {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

FileDescriptor openOneDirectory(int parent, const std::string& name, bool create) {
  if (create && ::mkdirat(parent, name.c_str(), 0755) != 0 && errno != EEXIST) {
    throw fileSystemError("cannot make the directory " + name, errno);
  }
  FileDescriptor directory(::openat(parent, name.c_str(), kDirectoryFlags | O_NOFOLLOW));
  if (!directory && (create || errno != ENOENT))
    throw fileSystemError("cannot open the directory " + name, errno);
  return directory;
}

constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;

std::string nameOf(const SystemRoot& root) {
  return "the system root " + root.path().string();
}

std::string nameOf(uid_t user) {
  return user == 0 ? "root" : "user " + std::to_string(user);
}

struct stat statusOf(int directory, const std::string& name) {
  struct stat status {};
  if (::fstat(directory, &status) != 0) throw fileSystemError("cannot examine " + name, errno);
  return status;
}

ServiceError foreign(const std::string& name, uid_t owner) {
  return {ServiceErrorCode::NotPermitted,
          name + " belongs to " + nameOf(owner) + ", and this is " + nameOf(::geteuid()) +
              ": run this as " + nameOf(owner) + ", or choose a root of your own with --root DIR"};
}

ServiceError writable(const std::string& name, mode_t mode) {
  std::array<char, 8> octal{};
  std::snprintf(octal.data(), octal.size(), "%04o", mode & 07777U);
  return {ServiceErrorCode::NotPermitted,
          name + " can be written by others (mode " + octal.data() +
              "), who could decide what is run: remove the permission with chmod go-w, or choose "
              "another root with --root DIR"};
}

/// Checks a directory on the path to a root, or the root itself: only trusted users may decide what
/// it contains or, above the root, replace the next directory on the path.
void checkIsTrusted(int directory, const std::string& name, bool isRoot) {
  const struct stat status = statusOf(directory, name);
  if (S_ISLNK(status.st_mode)) {
    throw ServiceError(ServiceErrorCode::NotPermitted,
                       name +
                           " is a symbolic link, which is not followed: name the directory that "
                           "it points to, with --root DIR");
  }
  if (!S_ISDIR(status.st_mode))
    throw ServiceError(ServiceErrorCode::FileSystem, name + " is not a directory");
  if (!isTrustedUser(status.st_uid)) throw foreign(name, status.st_uid);
  const bool isHarmless = !isRoot && (status.st_mode & S_ISVTX) != 0;
  if ((status.st_mode & kWritableByOthers) != 0 && !isHarmless)
    throw writable(name, status.st_mode);
}

/// The next directory on the path, not checked yet, and not followed if it is a link.
FileDescriptor openNext(int parent, const std::string& name, const std::string& path, bool create) {
  if (create && ::mkdirat(parent, name.c_str(), 0755) != 0 && errno != EEXIST)
    throw fileSystemError("cannot make the directory " + path, errno);
  FileDescriptor next(::openat(parent, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!next && (create || errno != ENOENT))
    throw fileSystemError("cannot open the directory " + path, errno);
  return next;
}

FileDescriptor reopened(int directory, const std::string& name) {
  FileDescriptor own(::openat(directory, ".", kDirectoryFlags));
  if (!own) throw fileSystemError("cannot open " + name, errno);
  return own;
}

FileDescriptor walkTo(const SystemRoot& root, bool create) {
  const std::string name = nameOf(root);
  FileDescriptor current(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!current) throw fileSystemError("cannot open the directory /", errno);
  std::filesystem::path path = "/";
  for (const auto& component : root.path().relative_path()) {
    checkIsTrusted(current.get(), "the directory " + path.string() + " above " + name, false);
    path /= component;
    current = openNext(current.get(), component.string(), path.string(), create);
    if (!current) return current;
  }
  checkIsTrusted(current.get(), name, true);
  return reopened(current.get(), name);
}

/// Checks a directory of the system's own root.
void checkIsTheSystems(int directory, const std::string& name) {
  const struct stat status = statusOf(directory, name);
  // In a sandbox they are the builder's, or were bound into it from outside.
  const bool isBuilders = userOutside() && isTrustedUser(status.st_uid);
  if (status.st_uid != SystemRoot::systemOwner() && !isBuilders) {
    throw ServiceError(ServiceErrorCode::NotPermitted,
                       name + " belongs to " + nameOf(status.st_uid) +
                           ", who could decide what is run: give it back with chown root");
  }
  if ((status.st_mode & kWritableByOthers) != 0) throw writable(name, status.st_mode);
}

/// Opens one directory after another, each checked before the next is looked up in it.
FileDescriptor openEach(int directory, std::string_view path, bool create,
                        void (*check)(int directory, const std::string& name)) {
  FileDescriptor current;
  int parent = directory;
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    current = openOneDirectory(parent, std::string(path.substr(begin, end - begin)), create);
    if (!current) return current;
    if (check != nullptr) check(current.get(), "/" + std::string(path.substr(0, end)));
    parent = current.get();
    begin = end + 1;
  }
  return current;
}

/// The root that the process opened last, with the attributes that would show that it has been
/// replaced or opened to other users. Otherwise the path need not be walked again.
class LastRoot {
 public:
  void remember(const std::filesystem::path& path, int directory) {
    struct stat status {};
    if (::fstat(directory, &status) != 0) return;
    const std::lock_guard lock(mutex_);
    path_ = path;
    user_ = ::geteuid();
    status_ = status;
  }
  [[nodiscard]] FileDescriptor open(const std::filesystem::path& path) {
    const std::lock_guard lock(mutex_);
    if (path_ != path || user_ != ::geteuid()) return {};
    FileDescriptor directory(::open(path.c_str(), kDirectoryFlags | O_NOFOLLOW));
    struct stat status {};
    if (!directory || ::fstat(directory.get(), &status) != 0 || !isTheSame(status)) return {};
    return directory;
  }
  static LastRoot& ofTheProcess() {
    static auto* const one = new LastRoot;  // outlives every static that may still use it
    return *one;
  }

 private:
  [[nodiscard]] bool isTheSame(const struct stat& status) const {
    return status.st_dev == status_.st_dev && status.st_ino == status_.st_ino &&
           status.st_uid == status_.st_uid && status.st_mode == status_.st_mode;
  }

  std::mutex mutex_;
  std::filesystem::path path_;
  uid_t user_ = 0;
  struct stat status_ {};
};

FileDescriptor reach(const SystemRoot& root, bool create) {
  if (root.directory() >= 0) return reopened(root.directory(), nameOf(root));
  if (auto known = LastRoot::ofTheProcess().open(root.path())) return known;
  auto walked = walkTo(root, create);
  if (walked) LastRoot::ofTheProcess().remember(root.path(), walked.get());
  return walked;
}

std::size_t checkedSize(int descriptor, const std::string& name, std::size_t maximumBytes) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) throw fileSystemError("cannot examine " + name, errno);
  if (!S_ISREG(status.st_mode))
    throw ServiceError(ServiceErrorCode::FileSystem, name + " is not a regular file");
  if (static_cast<std::uint64_t>(status.st_size) > maximumBytes) {
    throw ServiceError(ServiceErrorCode::FileSystem,
                       name + " is larger than " + std::to_string(maximumBytes) + " bytes");
  }
  return static_cast<std::size_t>(status.st_size);
}

}  // namespace

bool isTrustedUser(uid_t user) {
  return user == 0 || user == ::geteuid() || userOutside() == user;
}

FileDescriptor openRoot(const SystemRoot& root) {
  return reach(root, false);
}

FileDescriptor openOwnRoot(const SystemRoot& root) {
  auto directory = reach(root, true);
  checkIsOwn(directory.get(), nameOf(root));
  return directory;
}

void checkIsOwn(int directory, const std::string& name) {
  const struct stat status = statusOf(directory, name);
  if (status.st_uid != ::geteuid()) throw foreign(name, status.st_uid);
  if ((status.st_mode & kWritableByOthers) != 0) throw writable(name, status.st_mode);
}

FileDescriptor openDirectoryBelow(int directory, std::string_view relativePath, bool create) {
  return openEach(directory, relativePath, create, nullptr);
}

FileDescriptor openPlace(int rootDirectory, std::string_view place, bool create) {
  return openEach(rootDirectory, place, create,
                  SystemRoot::isSystem(rootDirectory) ? checkIsTheSystems : nullptr);
}

std::optional<std::vector<std::uint8_t>> readFileIn(int directory, const std::string& name,
                                                    std::size_t maximumBytes) {
  // O_NONBLOCK: a planted FIFO must not block the open.
  const FileDescriptor file(
      ::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) {
    if (errno == ENOENT) return std::nullopt;
    throw fileSystemError("cannot open " + name, errno);
  }
  return readDescriptor(file.get(), name, maximumBytes);
}

std::vector<std::uint8_t> readDescriptor(int descriptor, const std::string& name,
                                         std::size_t maximumBytes) {
  std::vector<std::uint8_t> bytes(checkedSize(descriptor, name, maximumBytes));
  std::size_t have = 0;
  while (have < bytes.size()) {
    const ssize_t got =
        ::pread(descriptor, bytes.data() + have, bytes.size() - have, static_cast<off_t>(have));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw fileSystemError("cannot read " + name, errno);
    if (got == 0)
      throw ServiceError(ServiceErrorCode::FileSystem, name + " shrank while it was being read");
    have += static_cast<std::size_t>(got);
  }
  return bytes;
}

std::vector<std::string> namesIn(int directory) try {
  return namesInOrThrow(directory, {});
} catch (const ServiceError&) {
  return {};
}

std::vector<std::string> namesInOrThrow(int directory, const std::string& name) {
  std::vector<std::string> names;
  FileDescriptor own(::openat(directory, ".", kDirectoryFlags));
  DIR* stream = own ? ::fdopendir(own.get()) : nullptr;
  if (stream == nullptr) throw fileSystemError("cannot read the directory " + name, errno);
  (void)own.release();  // the stream closes it
  errno = 0;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): safe, since each thread reads its own stream
  while (const dirent* entry = ::readdir(stream)) {
    const std::string_view found = entry->d_name;
    if (found != "." && found != "..") names.emplace_back(found);
  }
  const int error = errno;
  ::closedir(stream);
  if (error != 0) throw fileSystemError("cannot read the directory " + name, error);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace platform
