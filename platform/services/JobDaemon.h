// The job daemon of a root, as an application reaches it.
//
// Threading: any thread; calls wait for the daemon, at most 30 s. Ownership: values.
// Errors: ServiceError. Order: none.
#pragma once

#include "platform/services/Control.h"
#include "platform/services/SystemRoot.h"

namespace platform {

class JobDaemon {
 public:
  explicit JobDaemon(SystemRoot root) : root_(std::move(root)) {}

  /// Starts the daemon unless one is running, and returns when one answers. The program is named by
  /// WLHID_JOBD, else it is "Contents/Helpers/wlhid-jobd" of the main bundle. No child, zombie or
  /// descriptor of it stays in this process.
  void ensureRunning() const;

  /// Sends a request, with an open descriptor beside it (-1: none), and waits for its reply. Starts
  /// the daemon first if none is running.
  [[nodiscard]] ControlReply ask(const ControlRequest& request, int descriptor) const;

  /// What the daemon keeps; nothing when none is running (none is started for the question).
  [[nodiscard]] std::optional<ControlReply> status() const;

 private:
  [[nodiscard]] FileDescriptor connect() const;
  [[nodiscard]] std::optional<ControlReply> askOnce(const FileDescriptor& socket,
                                                    const ControlRequest& request,
                                                    int descriptor) const;
  void start() const;

  SystemRoot root_;
};

}  // namespace platform
