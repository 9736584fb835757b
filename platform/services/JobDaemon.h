// The job daemon of a root, as an application reaches it.
//
// Threading: any thread; calls wait for the daemon, at most 30 s.
// Errors: ServiceError.
#pragma once

#include <utility>

#include "platform/services/Control.h"
#include "platform/services/SystemRoot.h"

namespace platform {

/// An open connection to the daemon, for requests that belong together.
class ControlConnection {
 public:
  explicit ControlConnection(FileDescriptor socket) : socket_(std::move(socket)) {}

  /// Sends a request, with an open descriptor beside it (-1: none), and waits for its reply;
  /// nothing when the daemon hung up before it.
  [[nodiscard]] std::optional<ControlReply> tryAsk(const ControlRequest& request, int descriptor);
  /// The same; throws DaemonUnavailable for a daemon that hung up.
  [[nodiscard]] ControlReply ask(const ControlRequest& request, int descriptor);
  /// Whether the daemon has hung up. To be asked while no reply is awaited.
  [[nodiscard]] bool hasEnded() const;

 private:
  FileDescriptor socket_;
};

class JobDaemon {
 public:
  explicit JobDaemon(SystemRoot root) : root_(std::move(root)) {}

  /// Starts the daemon unless one is running, and returns when one answers. The program is named by
  /// WLHID_JOBD, else it is "Contents/Helpers/wlhid-jobd" of the main bundle. No child, zombie or
  /// descriptor of it stays in this process.
  void ensureRunning() const;

  /// Sends one request on a connection of its own. Starts the daemon first if none is running.
  [[nodiscard]] ControlReply ask(const ControlRequest& request, int descriptor) const;

  /// A connection that has the daemon's leave to change one job: to remove it, to bless it, or the
  /// one and then the other, each once and soon. Starts the daemon first if none is running. Throws
  /// what the daemon refuses with.
  [[nodiscard]] ControlConnection authorize(const std::string& label) const;

  /// What the daemon keeps; nothing when none is running (none is started for the question).
  [[nodiscard]] std::optional<ControlReply> status() const;

 private:
  /// Empty when none is running.
  [[nodiscard]] FileDescriptor connect() const;
  /// Empty when one that was started has ended again.
  [[nodiscard]] FileDescriptor connectOrStart() const;
  /// A connection on which the daemon has answered the request.
  [[nodiscard]] std::pair<ControlConnection, ControlReply> openWith(const ControlRequest& request,
                                                                    int descriptor) const;
  void start() const;

  SystemRoot root_;
};

}  // namespace platform
