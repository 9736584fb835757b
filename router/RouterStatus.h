// What the running router says of itself: a property list that it keeps up to date for whoever
// asks.
//
//   <root>/var/run/com.quillmar.hideventrouter.status.plist
//     PID        integer   the router's process
//     Version    string
//     Lost       integer   reports that could not be handed over, over the router's whole life
//     Sessions   array, one dictionary a connection:
//       PID, UID    integers   the client's process and user
//       Device      integer    registry entry ID; missing while the client routes none
//       DeviceName  string     likewise
//       Exclusive   boolean    likewise
//       Delivered   integer    reports handed over since its start request
//       Lost        integer    reports that it was too slow for
//
// It is rewritten when a session comes, goes or changes, and at most once a second while losses
// grow; the counts are those of that moment. The router removes it when it ends; one that was
// killed leaves it behind, which isRunning tells.
//
// Threading: any thread. Ownership: values. Order: sessions by age.
// Errors: see each function.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/services/SystemRoot.h"

namespace router {

struct SessionStatus {
  pid_t pid = -1;
  uid_t uid = 0;
  std::optional<std::uint64_t> device;
  std::string deviceName;
  bool exclusive = false;
  std::uint64_t delivered = 0;
  std::uint64_t lost = 0;
  friend bool operator==(const SessionStatus&, const SessionStatus&) = default;
};

struct RouterStatus {
  pid_t pid = -1;
  std::string version;
  std::uint64_t lost = 0;
  std::vector<SessionStatus> sessions;
  friend bool operator==(const RouterStatus&, const RouterStatus&) = default;
};

[[nodiscard]] std::filesystem::path routerStatusFile(const platform::SystemRoot& root);
/// Nothing where there is no such file, or one that is none of a router's.
[[nodiscard]] std::optional<RouterStatus> readRouterStatus(const platform::SystemRoot& root);
/// Whether the process that wrote the status still lives.
[[nodiscard]] bool isRunning(const RouterStatus& status);
/// Throws std::system_error.
void writeRouterStatus(const platform::SystemRoot& root, const RouterStatus& status);
/// Removes the file if it is that process's.
void removeRouterStatus(const platform::SystemRoot& root, pid_t pid);

}  // namespace router
