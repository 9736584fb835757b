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
// killed leaves it behind. So that nobody takes that for a router's word, the router holds a write
// lock of the open file description (F_OFD_SETLK, the whole file) on each file that it puts there:
// the kernel lets go of it with the process, and a process number that somebody else has by now
// means nothing.
//
// Threading: any thread; a RouterStatusFile one at a time. Ownership: values; a RouterStatusFile
// holds its file. Order: sessions by age.
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
  bool isRunning = false;  ///< when it was read: whether the router that wrote it lives
  friend bool operator==(const RouterStatus&, const RouterStatus&) = default;
};

/// For people; it is reached through the root's directory.
[[nodiscard]] std::filesystem::path routerStatusFile(const platform::SystemRoot& root);
/// Nothing where there is no such file, or one that is none of a router's, or no root to be
/// trusted.
[[nodiscard]] std::optional<RouterStatus> readRouterStatus(const platform::SystemRoot& root);

/// The file as its router keeps it.
class RouterStatusFile {
 public:
  /// Clears away what writers that were killed have left.
  explicit RouterStatusFile(platform::SystemRoot root);

  /// Throws std::system_error or ServiceError.
  void write(const RouterStatus& status);
  /// Removes it, unless another router's has taken its place.
  void remove();

 private:
  platform::SystemRoot root_;
  platform::FileDescriptor file_;  // the latest, held
};

}  // namespace router
