// SPDX-License-Identifier: Apache-2.0

// The status of the running router: a property list that it keeps up to date.
//
//   <root>/var/run/com.quillmar.hideventrouter.status.plist
//     PID        integer   the router's process
//     Version    string
//     Lost       integer   reports lost to slow clients, over the router's whole life
//     Sessions   array, one dictionary per connection:
//       Session     integer    its number, for as long as it lasts
//       PID, UID    integers   the client's process and user
//       Program     string     the client's program; missing if unknown
//       Unit        string     the systemd unit that it belongs to; likewise
//       Device      integer    registry entry ID; missing if the client routes none
//       DeviceName  string     likewise
//       Exclusive   boolean    likewise
//       Delivered   integer    reports delivered since its start request
//       Lost        integer    reports that it, or the router, was too slow for
//
// It is rewritten when a session begins, ends or changes, and at most once a second while losses
// grow; the counts are those of that moment. The router removes it when it ends; a router that is
// killed leaves it behind. So that a stale file is not mistaken for a live one, the router holds an
// open file description write lock (F_OFD_SETLK, the whole file) on each status file that it
// writes. The kernel releases the lock with the process, so a reused process ID means nothing.
//
// Threading: any thread, one thread at a time per RouterStatusFile.
// Ownership: a RouterStatusFile keeps its file open.
// Order: sessions by age.
// Errors: see each function.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "platform/services/FileDescriptor.h"
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
  std::uint64_t number = 0;
  std::string program{};
  std::string unit{};
  friend bool operator==(const SessionStatus&, const SessionStatus&) = default;
};

struct RouterStatus {
  pid_t pid = -1;
  std::string version;
  std::uint64_t lost = 0;
  std::vector<SessionStatus> sessions;
  bool isRunning = false;  ///< whether the router that wrote it was alive when it was read
  friend bool operator==(const RouterStatus&, const RouterStatus&) = default;
};

/// The same as an object: the content of the file, and what the control service replies.
[[nodiscard]] std::shared_ptr<platform::NSDictionary> dictionaryOf(const RouterStatus& status);
/// Empty if the dictionary is not a router's status.
[[nodiscard]] std::optional<RouterStatus> routerStatusIn(const platform::NSDictionary& dictionary);

/// For messages; the file itself is reached through the root's directory.
[[nodiscard]] std::filesystem::path routerStatusFile(const platform::SystemRoot& root);
/// Empty if there is no such file, it is not a router's, or the root is not to be trusted.
[[nodiscard]] std::optional<RouterStatus> readRouterStatus(const platform::SystemRoot& root);

/// The file as maintained by its router.
class RouterStatusFile {
 public:
  /// Removes what killed writers left behind.
  explicit RouterStatusFile(platform::SystemRoot root);

  /// Throws std::system_error or ServiceError.
  void write(const RouterStatus& status);
  /// Removes the file, unless another router has replaced it.
  void remove();

 private:
  platform::SystemRoot root_;
  platform::FileDescriptor file_;  // the latest one, locked
};

}  // namespace router
