#include "platform/services/RootFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/services/ServiceError.h"

namespace platform {
namespace {

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

FileDescriptor openOneDirectory(int parent, const std::string& name, bool create) {
  if (create && ::mkdirat(parent, name.c_str(), 0755) != 0 && errno != EEXIST) {
    throw fileSystemError("cannot make the directory " + name, errno);
  }
  FileDescriptor directory(::openat(parent, name.c_str(), directoryFlags | O_NOFOLLOW));
  if (!directory && (create || errno != ENOENT))
    throw fileSystemError("cannot open the directory " + name, errno);
  return directory;
}

std::size_t checkedSize(int descriptor, const std::string& name, std::size_t maximumBytes) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) throw fileSystemError("cannot examine " + name, errno);
  if (!S_ISREG(status.st_mode))
    throw ServiceError(ServiceErrorCode::FileSystem, name + " is no regular file");
  if (static_cast<std::uint64_t>(status.st_size) > maximumBytes) {
    throw ServiceError(ServiceErrorCode::FileSystem,
                       name + " is larger than " + std::to_string(maximumBytes) + " bytes");
  }
  return static_cast<std::size_t>(status.st_size);
}

}  // namespace

FileDescriptor openRoot(const SystemRoot& root) {
  FileDescriptor directory(::open(root.path().c_str(), directoryFlags));
  if (!directory && errno != ENOENT)
    throw fileSystemError("cannot open the system root " + root.path().string(), errno);
  return directory;
}

FileDescriptor openDirectoryBelow(int directory, std::string_view relativePath, bool create) {
  FileDescriptor current;
  int parent = directory;
  while (!relativePath.empty()) {
    const auto slash = relativePath.find('/');
    current = openOneDirectory(parent, std::string(relativePath.substr(0, slash)), create);
    if (!current) return current;
    parent = current.get();
    relativePath =
        slash == std::string_view::npos ? std::string_view() : relativePath.substr(slash + 1);
  }
  return current;
}

std::optional<std::vector<std::uint8_t>> readFileIn(int directory, const std::string& name,
                                                    std::size_t maximumBytes) {
  // O_NONBLOCK: a planted FIFO must not hold the opener.
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
      throw ServiceError(ServiceErrorCode::FileSystem, name + " became shorter while it was read");
    have += static_cast<std::size_t>(got);
  }
  return bytes;
}

std::vector<std::string> namesIn(int directory) {
  std::vector<std::string> names;
  FileDescriptor own(::openat(directory, ".", directoryFlags));
  DIR* stream = own ? ::fdopendir(own.get()) : nullptr;
  if (stream == nullptr) return names;
  (void)own.release();  // the stream closes it
  // NOLINTNEXTLINE(concurrency-mt-unsafe): safe as long as each thread reads a stream of its own
  while (const dirent* entry = ::readdir(stream)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(stream);
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<uid_t> ownerOfRoot(const SystemRoot& root) {
  struct stat status {};
  if (::stat(root.path().c_str(), &status) != 0) return std::nullopt;
  return status.st_uid;
}

}  // namespace platform
