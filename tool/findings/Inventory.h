// SPDX-License-Identifier: Apache-2.0

// What exists on a system root: versions of the router, jobs, endpoints, devices, the log. Nothing
// is changed, and on a user's root nothing is started.
//
// Threading: the main thread.
// Errors: a part that cannot be read is empty, with the reason in its `problem`; the parts do not
//   affect each other.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/services/Control.h"
#include "platform/services/SystemRoot.h"
#include "router/Devices.h"
#include "router/RouterStatus.h"
#include "tool/findings/Endpoint.h"
#include "tool/findings/PresenceCheck.h"
#include "tool/findings/RouterService.h"
#include "tool/findings/SystemFindings.h"

namespace tool {

struct JobDaemonState {
  bool asked = false;                           ///< one runs, or seems to
  std::optional<platform::ControlReply> reply;  ///< of a daemon that runs
  std::string problem;                          ///< why it cannot be asked, or could not be started
  bool isForOthers = false;                     ///< its endpoint exists, but not for this user
  pid_t process = -1;                           ///< holds its endpoint, if there is a problem
};

struct RootState {
  std::string path;
  bool exists = false;
  uid_t owner = static_cast<uid_t>(-1);
  std::string problem;  ///< why it cannot be examined
};

struct DiskState {
  std::uint64_t freeBytes = 0;
  std::uint64_t freeFiles = 0;  ///< the largest number if the file system has no limit
  std::string problem;
};

struct LogState {
  std::string path;
  bool exists = false;
  bool isFile = false;
  uid_t owner = static_cast<uid_t>(-1);
  std::uint64_t bytes = 0;
  std::string problem;  ///< why it cannot be read
};

struct DeviceList {
  std::vector<router::DeviceDescription> devices;
  std::vector<std::string> problems;  ///< "file: cause" of each configuration that cannot be used
};

/// The status that a running router reports; on the system's own root, of this user's sessions, and
/// asking may start it. Nothing also if it does not answer within the limit.
[[nodiscard]] std::optional<router::RouterStatus> runningRouter(
    const platform::SystemRoot& root, std::chrono::milliseconds limit = RouterService::kReplyLimit);
[[nodiscard]] JobDaemonState askJobDaemon(const platform::SystemRoot& root);
[[nodiscard]] DeviceList devicesOf(const platform::SystemRoot& root);
[[nodiscard]] LogState logOf(const platform::SystemRoot& root);
[[nodiscard]] RootState stateOf(const platform::SystemRoot& root);
/// Of the file system that holds the root, or would hold it.
[[nodiscard]] DiskState diskOf(const platform::SystemRoot& root);

struct Inventory {
  platform::SystemRoot root;
  RootState rootState;
  PresenceCheck presence;
  std::optional<router::RouterStatus> router;
  JobDaemonState jobDaemon;
  std::vector<Endpoint> endpoints;
  DeviceList devices;
  LogState log;
  DiskState disk;
  std::optional<SystemFindings> system{};  ///< of the system's own root
};

[[nodiscard]] Inventory takeInventory(const platform::SystemRoot& root);

}  // namespace tool
