// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/PassedDescriptors.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace platform::xpc {
namespace {

constexpr int kFirstDescriptor = 3;
constexpr long kMaxDescriptors = 1024;

std::optional<long> numberFromEnvironment(const char* name) {
  const char* const text = ::secure_getenv(name);
  if (text == nullptr) return std::nullopt;
  const std::string_view all(text);
  long value = 0;
  const auto [end, error] = std::from_chars(all.data(), all.data() + all.size(), value);
  if (error != std::errc{} || end != all.data() + all.size() || value < 0) return -1;
  return value;
}

std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> parts;
  for (std::size_t colon = text.find(':'); colon != std::string_view::npos;
       colon = text.find(':')) {
    parts.push_back(text.substr(0, colon));
    text.remove_prefix(colon + 1);
  }
  parts.push_back(text);
  return parts;
}

int failWith(int error) {
  errno = error;
  return -1;
}

/// The number of the descriptor named `service`, or -1 with errno.
int findDescriptor(std::string_view service) {
  const auto process = numberFromEnvironment("LISTEN_PID");
  const auto count = numberFromEnvironment("LISTEN_FDS");
  if (!process || !count || *process != ::getpid()) return failWith(ENOENT);
  if (*count < 0 || *count > kMaxDescriptors) return failWith(EINVAL);
  const char* const names = ::secure_getenv("LISTEN_FDNAMES");
  if (names == nullptr)
    return *count == 1 ? kFirstDescriptor : failWith(*count == 0 ? ENOENT : EINVAL);
  const auto all = split(names);
  if (*count == 0) return failWith(ENOENT);
  if (all.size() != static_cast<std::size_t>(*count)) return failWith(EINVAL);
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i] == service) return kFirstDescriptor + static_cast<int>(i);
  }
  return failWith(ENOENT);
}

bool handOut(int descriptor) {
  static auto* const mutex = new std::mutex;
  static auto* const handedOut = new std::set<int>;
  const std::lock_guard lock(*mutex);
  return handedOut->insert(descriptor).second;
}

int socketOption(int descriptor, int option) {
  int value = 0;
  socklen_t size = sizeof value;
  return ::getsockopt(descriptor, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

}  // namespace

bool isListeningStreamSocket(int descriptor) {
  const int domain = socketOption(descriptor, SO_DOMAIN);
  if (domain < 0) return false;
  if (domain == AF_UNIX && socketOption(descriptor, SO_TYPE) == SOCK_STREAM &&
      socketOption(descriptor, SO_ACCEPTCONN) == 1) {
    return true;
  }
  errno = EOPNOTSUPP;
  return false;
}

bool prepareDescriptor(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags >= 0 && ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0 &&
         ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0;
}

int takePassedDescriptor(std::string_view service) {
  const int descriptor = findDescriptor(service);
  if (descriptor < 0 || !isListeningStreamSocket(descriptor) || !prepareDescriptor(descriptor))
    return -1;
  return handOut(descriptor) ? descriptor : failWith(EBUSY);
}

int takePassedDirectory(std::string_view name) {
  const int descriptor = findDescriptor(name);
  struct stat status {};
  if (descriptor < 0 || ::fstat(descriptor, &status) != 0) return -1;
  if (!S_ISDIR(status.st_mode)) return failWith(ENOTDIR);
  if (::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0) return -1;
  return handOut(descriptor) ? descriptor : failWith(EBUSY);
}

}  // namespace platform::xpc
