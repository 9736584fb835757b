// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Endpoint.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/services/RootFiles.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

using platform::SystemRoot;

/// Clients connect only to endpoints that belong to root or to their own user; on
/// the system's own root, only to the superuser's.
std::string endpointProblem(const SystemRoot& root, const Endpoint& endpoint) {
  if (!S_ISSOCK(endpoint.mode)) return endpoint.path + ": not a socket";
  const bool isSystem = root.isSystem();
  if (isSystem ? endpoint.owner == SystemRoot::systemOwner()
               : platform::isTrustedUser(endpoint.owner))
    return {};
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
