// SPDX-License-Identifier: Apache-2.0

// The process at the other end of a connection, as the kernel knows it.
//
// Taken once, when the connection is accepted. A process ID alone says little: its process may end
// and the number go to another. So everything is read while a process descriptor is held, and
// counts only if that process is still alive afterwards. Since Linux 6.5 the descriptor comes from
// the socket and is the peer's beyond doubt. Before, it is opened by the number, and what was read
// must belong to the peer's user: if the number was reused in the meantime, it is at most a
// process of the same user.
//
// Threading: any thread; copies share the descriptor.
// Errors: no PeerProcess, and the reason. Who cannot be identified gets nothing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/services/FileDescriptor.h"

namespace platform::system {

class PeerProcess {
 public:
  /// Of a connected Unix socket.
  [[nodiscard]] static std::optional<PeerProcess> ofSocket(int socket, std::string& whyNot);
  /// Of a process ID that belonged to a process of that user. `process` is a process descriptor if
  /// there already is one.
  [[nodiscard]] static std::optional<PeerProcess> ofProcess(pid_t processID, uid_t user,
                                                            FileDescriptor process,
                                                            std::string& whyNot);

  [[nodiscard]] pid_t processID() const { return processID_; }
  /// The effective user when the connection was made.
  [[nodiscard]] uid_t user() const { return user_; }
  /// In clock ticks since boot. With the process ID, the name of a process for polkit.
  [[nodiscard]] std::uint64_t startTime() const { return startTime_; }
  /// For people: the path of the program, or what it calls itself if the path may not be read. A
  /// claim, no identity: whoever starts a program decides what stands here. Printable, one line.
  [[nodiscard]] const std::string& program() const { return program_; }
  /// The systemd unit of the user or of the system that the process runs in; empty if none.
  [[nodiscard]] const std::string& unit() const { return unit_; }
  /// False for good once the process has ended.
  [[nodiscard]] bool isAlive() const;

 private:
  PeerProcess() = default;

  pid_t processID_ = -1;
  uid_t user_ = static_cast<uid_t>(-1);
  std::uint64_t startTime_ = 0;
  std::string program_;
  std::string unit_;
  std::shared_ptr<const FileDescriptor> process_;
};

}  // namespace platform::system
