// SPDX-License-Identifier: Apache-2.0

#include "platform/services/ServiceEndpoints.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

#include "platform/services/JobDaemon.h"
#include "platform/services/JobFile.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"
#include "platform/services/UnixSocket.h"

namespace platform {
namespace {

using Outcome = ServiceConnectResult::Outcome;

ServiceConnectResult failure(Outcome outcome, std::string reason) {
  return {outcome, -1, std::move(reason)};
}

bool jobOffers(int jobs, const std::string& fileName, std::string_view service) try {
  const auto bytes = readFileIn(jobs, fileName, kMaximumJobFileBytes);
  if (!bytes) return false;
  const auto job = parseJobFile(
      *bytes, fileName.substr(0, fileName.size() - std::string_view(".plist").size()), nullptr);
  return job &&
         std::find(job->services.begin(), job->services.end(), service) != job->services.end();
} catch (const ServiceError&) {
  return false;  // a job file that cannot be read offers nothing
}

/// Whether a job of the layer offers the service. Most services have the name of their job, so that
/// job file is tried first.
bool isOfferedIn(int rootDirectory, const JobLayer& layer, std::string_view service) {
  const auto jobs = openPlace(rootDirectory, layer.jobs);
  if (!jobs) return false;
  if (jobOffers(jobs.get(), std::string(service) + ".plist", service)) return true;
  const auto names = namesIn(jobs.get());
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    return name.ends_with(".plist") && jobOffers(jobs.get(), name, service);
  });
}

bool isOffered(const SystemRoot& root, std::string_view service) {
  const auto rootDirectory = openRoot(root);
  if (!rootDirectory) return false;
  const auto layers = root.places().layers;
  return std::any_of(layers.begin(), layers.end(), [&](const JobLayer& layer) {
    return isOfferedIn(rootDirectory.get(), layer, service);
  });
}

ServiceConnectResult checkedEndpoint(FileDescriptor socket) {
  const auto peer = peerCredentials(socket.get());
  if (peer && isTrustedUser(peer->user)) return {Outcome::Connected, socket.release(), {}};
  return failure(Outcome::Refused, "the endpoint belongs to another user");
}

/// Whether descriptors or memory have run out, in this process or in the system.
bool isShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// What a failed connect means; nothing if there is no listener, which starting the daemon may fix.
std::optional<ServiceConnectResult> meaningOf(int error) {
  if (isShortage(error)) return failure(Outcome::TryAgain, errorText(error));
  switch (error) {
    case ENOENT:
    case ECONNREFUSED:
      return std::nullopt;
    case EAGAIN:
      return failure(Outcome::TryAgain, "the endpoint's backlog is full");
    case EACCES:
    case EPERM:
    case ENOTSOCK:
    case ELOOP:
      return failure(Outcome::Refused, "the endpoint cannot be used: " + errorText(error));
    default:
      return failure(Outcome::UnknownName, "the endpoint cannot be reached: " + errorText(error));
  }
}

FileDescriptor connectEndpoint(const SystemRoot& root, std::string_view service) {
  const auto rootDirectory = openRoot(root);
  const auto run =
      rootDirectory ? openPlace(rootDirectory.get(), root.places().run) : FileDescriptor();
  if (!run) {
    errno = ENOENT;
    return {};
  }
  return connectUnixSocketAt(run.get(), std::string(service) + ".sock",
                             SOCK_STREAM | SOCK_NONBLOCK);
}

/// On the system's own root systemd listens, from start-up on, and nobody else may.
ServiceConnectResult notListening(const SystemRoot& root, std::string_view service) {
  return failure(Outcome::UnknownName, "its job is installed, but nobody listens at " +
                                           root.endpoint(service).string() +
                                           ": start it with systemctl start wlhid-router.socket");
}

class RootEndpoints final : public ServiceEndpoints {
 public:
  ServiceConnectResult connectToService(std::string_view service) override try {
    if (!SystemRoot::isValidLabel(service))
      return failure(Outcome::UnknownName, "it is not a valid service name");
    return connectWithin(SystemRoot::current(), service);
  } catch (const ServiceError& error) {
    if (isShortage(error.systemError())) return failure(Outcome::TryAgain, error.what());
    const bool refused = error.code() == ServiceErrorCode::NotPermitted;
    return failure(refused ? Outcome::Refused : Outcome::UnknownName, error.what());
  } catch (const std::exception& error) {
    return failure(Outcome::UnknownName, error.what());
  }

 private:
  static ServiceConnectResult connectWithin(const SystemRoot& root, std::string_view service) {
    for (int attempt = 0; attempt < 3; ++attempt) {
      if (auto socket = connectEndpoint(root, service)) return checkedEndpoint(std::move(socket));
      if (auto known = meaningOf(errno)) return *known;
      if (!isOffered(root, service)) return failure(Outcome::UnknownName, "no job offers it");
      if (root.isSystem()) return notListening(root, service);
      JobDaemon(root).ensureRunning();
    }
    return failure(
        Outcome::UnknownName,
        "its job is installed, but the job daemon is not listening for it (see its log)");
  }
};

}  // namespace

ProviderSlot<ServiceEndpoints>& serviceEndpoints() {
  static auto* const slot = new ProviderSlot<ServiceEndpoints>(std::make_shared<RootEndpoints>());
  return *slot;
}

}  // namespace platform
