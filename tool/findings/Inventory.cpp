// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Inventory.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <limits>

#include "platform/foundation/NSBundle.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/RootFiles.h"
#include "platform/services/UnixSocket.h"
#include "tool/command/Command.h"
#include "tool/findings/RouterService.h"

namespace tool {

namespace {

using platform::SystemRoot;

std::string withCause(const std::string& what, int error) {
  return what + ": " + describeErrno(error);
}

/// The program that would be started as the root's job daemon.
std::string jobDaemonProgram() {
  const char* const named = ::secure_getenv("WLHID_JOBD");
  if (named != nullptr && *named != '\0') return named;
  const auto bundle = platform::NSBundle::mainBundle()->bundlePath();
  return bundle ? bundle->UTF8String() + "/Contents/Helpers/wlhid-jobd" : std::string();
}

std::string whyNotStartable() {
  const std::string program = jobDaemonProgram();
  if (program.empty()) return "the location of the job daemon's program is unknown";
  return ::access(program.c_str(), X_OK) == 0
             ? std::string()
             : withCause("the job daemon's program " + program, errno);
}

/// The process that listens on the daemon's endpoint, whether or not it answers; -1 if none does.
pid_t processAtControlEndpoint(const SystemRoot& root) try {
  const auto directory = platform::openRoot(root);
  const auto run = directory ? platform::openPlace(directory.get(), root.places().run)
                             : platform::FileDescriptor();
  if (!run) return -1;
  const auto socket = platform::connectUnixSocketAt(
      run.get(), root.controlEndpoint().filename().string(), SOCK_STREAM | SOCK_NONBLOCK);
  const auto peer = socket ? platform::peerCredentials(socket.get()) : std::nullopt;
  return peer ? peer->process : -1;
} catch (const std::exception&) {
  return -1;
}

/// The directory itself, or its nearest existing ancestor.
std::filesystem::path nearestExisting(std::filesystem::path directory) {
  const auto isMissing = [](const std::filesystem::path& path) {
    std::error_code ignored;  // unreadable does not mean missing
    return std::filesystem::status(path, ignored).type() == std::filesystem::file_type::not_found;
  };
  while (directory.has_relative_path() && isMissing(directory)) directory = directory.parent_path();
  return directory;
}

std::optional<router::RouterStatus> askedStatus(std::chrono::milliseconds limit) try {
  return RouterService().status(limit);
} catch (const Failure&) {
  return std::nullopt;
}

std::optional<router::RouterStatus> keptStatus(const SystemRoot& root) {
  auto status = router::readRouterStatus(root);
  if (status && !status->isRunning) status.reset();
  return status;
}

}  // namespace

std::optional<router::RouterStatus> runningRouter(const SystemRoot& root,
                                                  std::chrono::milliseconds limit) {
  return root.isSystem() ? askedStatus(limit) : keptStatus(root);
}

JobDaemonState askJobDaemon(const SystemRoot& root) {
  JobDaemonState daemon;
  try {
    daemon.reply = platform::JobDaemon(root).status();
    daemon.asked = daemon.reply.has_value();
    std::error_code ignored;
    daemon.isForOthers = !daemon.asked &&
                         std::filesystem::exists(root.controlEndpoint(), ignored) &&
                         !mayConnectTo(root.controlEndpoint());
    if (!daemon.asked && !daemon.isForOthers && !root.isSystem())
      daemon.problem = whyNotStartable();
  } catch (const std::exception& error) {
    daemon.asked = true;
    daemon.problem = std::string("the job daemon cannot be queried: ") + error.what();
    daemon.process = processAtControlEndpoint(root);
  }
  return daemon;
}

DeviceList devicesOf(const SystemRoot& root) {
  DeviceList list;
  try {
    list.devices = router::listDevices(root, &list.problems);
  } catch (const std::exception& error) {
    list.problems.emplace_back(error.what());
  }
  return list;
}

LogState logOf(const SystemRoot& root) {
  LogState log;
  log.path = root.systemLog();
  const platform::FileDescriptor file(
      ::open(log.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  const int error = file ? 0 : errno;
  log.exists = error != ENOENT;
  struct stat status {};
  if (::stat(log.path.c_str(), &status) == 0) {
    log.isFile = S_ISREG(status.st_mode);
    log.owner = status.st_uid;
  }
  if (!file) {
    if (log.exists) log.problem = withCause(log.path, error);
    return log;
  }
  if (::fstat(file.get(), &status) != 0) {
    log.problem = withCause(log.path, errno);
  } else if (!S_ISREG(status.st_mode)) {
    log.problem = log.path + ": not a regular file";
  } else {
    log.bytes = static_cast<std::uint64_t>(status.st_size);
  }
  return log;
}

RootState stateOf(const SystemRoot& root) {
  RootState state;
  state.path = root.path();
  struct stat status {};
  if (::stat(state.path.c_str(), &status) == 0) {
    state.exists = true;
    state.owner = status.st_uid;
    if (!S_ISDIR(status.st_mode)) state.problem = state.path + ": " + describeErrno(ENOTDIR);
  } else if (errno != ENOENT) {
    state.problem = withCause(state.path, errno);
  }
  return state;
}

DiskState diskOf(const SystemRoot& root) {
  struct statvfs status {};
  const std::string directory = nearestExisting(root.path());
  if (::statvfs(directory.c_str(), &status) != 0) return {0, 0, withCause(directory, errno)};
  const bool counted = status.f_files != 0;
  return {static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize,
          counted ? status.f_favail : std::numeric_limits<std::uint64_t>::max(),
          {}};
}

Inventory takeInventory(const SystemRoot& root) {
  PresenceCheck presence = checkPresence();
  auto endpoints = endpointsOf(root, presence.versions.services);
  std::optional<SystemFindings> system;
  if (root.isSystem()) system = takeSystemFindings(root, presence.versions.installed.has_value());
  auto router = system ? system->router.status : runningRouter(root);
  return {root,
          stateOf(root),
          std::move(presence),
          std::move(router),
          askJobDaemon(root),
          std::move(endpoints),
          devicesOf(root),
          logOf(root),
          diskOf(root),
          std::move(system)};
}

}  // namespace tool
