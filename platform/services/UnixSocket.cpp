// SPDX-License-Identifier: Apache-2.0

#include "platform/services/UnixSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>

#include "platform/services/ServiceEndpoints.h"

namespace platform {
namespace {

/// "/proc/self/fd/N" or "/proc/self/fd/N/name"; `name` is short. The path ends at the first NUL.
sockaddr_un addressThrough(int descriptor, const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor) + name;
  path.copy(address.sun_path, sizeof address.sun_path);
  return address;
}

const sockaddr* pointer(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

/// A name that nobody else in this or another process is binding at the same time.
std::string temporaryName() {
  static std::atomic<unsigned> counter{0};
  return ".sock." + std::to_string(::getpid()) + "." + std::to_string(counter.fetch_add(1));
}

/// Removes the temporary socket file and preserves errno.
FileDescriptor failed(int directory, const std::string& temporary) {
  const int error = errno;
  ::unlinkat(directory, temporary.c_str(), 0);
  errno = error;
  return {};
}

struct ParentAndName {
  FileDescriptor parent;
  std::string name;
};

ParentAndName openParent(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string parent = slash == std::string::npos ? "."
                             : slash == 0               ? "/"
                                                        : path.substr(0, slash);
  return {FileDescriptor(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
          slash == std::string::npos ? path : path.substr(slash + 1)};
}

}  // namespace

FileDescriptor connectUnixSocketAt(int directory, const std::string& name, int type) {
  const FileDescriptor file(::openat(directory, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!file) return {};
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return {};
  if (!S_ISSOCK(status.st_mode)) {
    errno = ENOTSOCK;
    return {};
  }
  FileDescriptor socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  if (!socket) return {};
  const sockaddr_un address = addressThrough(file.get(), {});
  if (::connect(socket.get(), pointer(address), sizeof address) != 0) return {};
  return socket;
}

FileDescriptor listenUnixSocketAt(int directory, const std::string& name, int type, int backlog,
                                  unsigned mode) {
  FileDescriptor socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  if (!socket) return {};
  const std::string temporary = temporaryName();
  const sockaddr_un address = addressThrough(directory, "/" + temporary);
  // May have been left by a killed process with the same process ID.
  ::unlinkat(directory, temporary.c_str(), 0);
  if (::bind(socket.get(), pointer(address), sizeof address) != 0) return {};
  if (::fchmodat(directory, temporary.c_str(), mode, 0) != 0) return failed(directory, temporary);
  if (::listen(socket.get(), backlog) != 0) return failed(directory, temporary);
  if (::renameat(directory, temporary.c_str(), directory, name.c_str()) != 0)
    return failed(directory, temporary);
  return socket;
}

std::optional<PeerCredentials> peerCredentials(int socket) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
    return std::nullopt;
  return PeerCredentials{credentials.uid, credentials.pid};
}

int connectUnixSocket(const std::string& path, int type) {
  const auto [parent, name] = openParent(path);
  return parent ? connectUnixSocketAt(parent.get(), name, type).release() : -1;
}

int listenUnixSocket(const std::string& path, int type, int backlog, unsigned mode) {
  const auto [parent, name] = openParent(path);
  return parent ? listenUnixSocketAt(parent.get(), name, type, backlog, mode).release() : -1;
}

}  // namespace platform
