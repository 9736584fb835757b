// SPDX-License-Identifier: Apache-2.0

// An application's access to the job daemon of a root.
//
// The daemon of a user's root is started on demand. On the system's own root systemd listens for it
// and starts it; where nobody listens, the package is not installed.
//
// Threading: any thread; calls wait for the daemon, at most 30 s; on the system's own root 5
// minutes,
//   since a person may have to type a password.
// Errors: ServiceError.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "platform/services/Control.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"

namespace platform {

/// An open connection to the daemon, for requests that belong together.
class ControlConnection {
 public:
  /// A removal waits for the job's process, which may take its full grace period of 5 s to exit.
  static constexpr std::chrono::milliseconds kReplyTimeout{30'000};
  static constexpr std::chrono::milliseconds kPersonTimeout{300'000};

  explicit ControlConnection(FileDescriptor socket,
                             std::chrono::milliseconds timeout = kReplyTimeout)
      : socket_(std::move(socket)), timeout_(timeout) {}

  /// Sends a request, with an open descriptor (-1: none), and waits for the reply; nothing if the
  /// daemon closed the connection first.
  [[nodiscard]] std::optional<ControlReply> tryAsk(const ControlRequest& request, int descriptor);
  /// The same, but throws DaemonUnavailable if the daemon closed the connection.
  [[nodiscard]] ControlReply ask(const ControlRequest& request, int descriptor);
  /// Whether the daemon has closed the connection. Only call while no reply is pending.
  [[nodiscard]] bool hasEnded() const;

 private:
  FileDescriptor socket_;
  std::chrono::milliseconds timeout_;
};

class JobDaemon {
 public:
  explicit JobDaemon(SystemRoot root) : root_(std::move(root)) {}

  /// Starts the daemon unless one is running, and returns when one answers. The program is
  /// WLHID_JOBD if set, else "Contents/Helpers/wlhid-jobd" in the main bundle. Leaves no child,
  /// zombie or descriptor of it in this process.
  void ensureRunning() const;

  /// Sends one request on a new connection. Starts the daemon first if none is running.
  [[nodiscard]] ControlReply ask(const ControlRequest& request, int descriptor) const;

  /// A connection with the daemon's permission to change one job: to remove it, to bless it, or to
  /// remove and then bless it, each once and within a short time. Starts the daemon first if none
  /// is running. Throws the daemon's error if it refuses.
  [[nodiscard]] ControlConnection authorize(const std::string& label) const;
  /// The same for a request with a purpose and a prompt.
  [[nodiscard]] ControlConnection authorize(const ControlRequest& request) const;

  /// The daemon's jobs; nothing if no daemon is running (does not start one).
  [[nodiscard]] std::optional<ControlReply> status() const;

 private:
  /// Empty if no daemon is running.
  [[nodiscard]] FileDescriptor connect() const;
  /// Empty if the daemon that was started has already exited.
  [[nodiscard]] FileDescriptor connectOrStart() const;
  /// A connection on which the daemon has answered the request.
  [[nodiscard]] std::pair<ControlConnection, ControlReply> openWith(const ControlRequest& request,
                                                                    int descriptor) const;
  void start() const;

  SystemRoot root_;
};

}  // namespace platform
