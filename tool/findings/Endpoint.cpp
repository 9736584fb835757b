// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Endpoint.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/services/FileDescriptor.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceEndpoints.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

using platform::SystemRoot;

/// The file of a socket outlives its listener. Connecting starts a router that is not running,
/// which whoever asks for a diagnosis wants to hear about anyway.
bool hasListener(const std::string& path) {
  const platform::FileDescriptor socket(
      platform::connectUnixSocket(path, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC));
  return socket || errno != ECONNREFUSED;
}

/// Clients connect only to endpoints that belong to root or to their own user; on
/// the system's own root, only to the superuser's.
std::string endpointProblem(const SystemRoot& root, const Endpoint& endpoint) {
  if (!S_ISSOCK(endpoint.mode)) return endpoint.path + ": not a socket";
  const bool isSystem = root.isSystem();
  const bool isTrusted = isSystem ? endpoint.owner == SystemRoot::systemOwner()
                                  : platform::isTrustedUser(endpoint.owner);
  // On a user's root the job daemon listens, and is started for whoever connects.
  if (isTrusted && isSystem && endpoint.mayConnect && !hasListener(endpoint.path))
    return endpoint.path + ": nobody listens there any more";
  if (isTrusted) return {};
  return endpoint.path + ": belongs to user " + std::to_string(endpoint.owner) + ", not to root" +
         (isSystem ? "" : " or this user");
}

Endpoint endpointOf(const SystemRoot& root, const std::string& service) {
  Endpoint endpoint;
  endpoint.service = service;
  if (!SystemRoot::isValidLabel(service)) {
    endpoint.problem = "\"" + oneLine(service) + "\" is not a valid service name";
    return endpoint;
  }
  endpoint.path = root.endpoint(service);
  struct stat status {};
  if (::lstat(endpoint.path.c_str(), &status) != 0) {
    if (errno != ENOENT) endpoint.problem = endpoint.path + ": " + describeErrno(errno);
    return endpoint;
  }
  endpoint.exists = true;
  endpoint.owner = status.st_uid;
  endpoint.mode = status.st_mode;
  endpoint.mayConnect = mayConnectTo(endpoint.path);
  endpoint.problem = endpointProblem(root, endpoint);
  return endpoint;
}

}  // namespace

bool mayConnectTo(const std::string& endpoint) {
  return ::faccessat(AT_FDCWD, endpoint.c_str(), W_OK, AT_EACCESS) == 0;
}

std::vector<Endpoint> endpointsOf(const SystemRoot& root,
                                  const std::vector<std::string>& services) {
  std::vector<Endpoint> endpoints;
  endpoints.reserve(services.size());
  for (const std::string& service : services) endpoints.push_back(endpointOf(root, service));
  return endpoints;
}

}  // namespace tool
