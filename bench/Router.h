// SPDX-License-Identifier: Apache-2.0

// The other process of a benchmark: a router that serves the real protocol, and next to it bare
// sockets as a baseline.
//
// The program starts itself again in this role, with two listening sockets: descriptor 3 for the
// connection layer, descriptor 4 for bare streams. What a session has to send is encoded in the
// start request's entry ID (see Job).
//
// This router has no devices: what is measured with it is the connection layer and the client. The
// one in DeviceRouter.h has a device.
//
// Threading: a process belongs to one thread.
// Ownership: its destructor ends it and removes its files.
// Errors: std::runtime_error.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

inline constexpr std::size_t kReportBytes = 64;
/// On the wire (docs/wire-protocol.md): a header of 8 bytes, the data's tag and size, the bytes,
/// the report ID.
inline constexpr std::size_t kReportFrameBytes = 8 + 2 + kReportBytes + 4;
/// Where the report's bytes begin in the frame, and the value of each.
inline constexpr std::size_t kReportOffset = 8 + 2;
inline constexpr std::uint8_t kReportFiller = 0x5A;
/// A message without arguments.
inline constexpr std::size_t kEmptyFrameBytes = 8;

enum class Kind : std::uint8_t { Nothing = 0, Stream = 1, PingPong = 2, Paced = 3, Ping = 4 };

/// One session's work: `count` reports, `batch` at a time, or `perSecond` if they are paced. In a
/// ping-pong the pongs come on the connection with that job, triggered by pings on another one.
struct Job {
  Kind kind = Kind::Nothing;
  std::uint8_t batch = 1;
  std::uint32_t count = 0;
  std::uint16_t perSecond = 8000;

  [[nodiscard]] std::uint64_t encode() const {
    return static_cast<std::uint64_t>(perSecond) << 48 | static_cast<std::uint64_t>(kind) << 40 |
           static_cast<std::uint64_t>(batch) << 32 | count;
  }
  static Job decode(std::uint64_t encoded) {
    return {static_cast<Kind>(encoded >> 40 & 0xFF),
            static_cast<std::uint8_t>(encoded >> 32 & 0xFF), static_cast<std::uint32_t>(encoded),
            static_cast<std::uint16_t>(encoded >> 48)};
  }
};

/// This program once more, in a role and with a directory of its own.
class RoleProcess {
 public:
  RoleProcess(const RoleProcess&) = delete;
  RoleProcess& operator=(const RoleProcess&) = delete;

  /// Where the process listens for the connection layer.
  [[nodiscard]] std::string endpoint() const { return directory_ / "layer.sock"; }
  /// Processor time that the process has used so far, in seconds.
  [[nodiscard]] double processorSeconds() const;

 protected:
  /// Creates the directory; starts nothing.
  RoleProcess();
  ~RoleProcess();
  /// Starts it with sockets that listen at the paths, from descriptor 3 on.
  void start(std::vector<std::string> arguments, const std::vector<std::string>& paths);
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }

 private:
  std::filesystem::path directory_;
  pid_t process_ = -1;
};

inline constexpr int kLayerDescriptor = 3;

class RouterProcess : public RoleProcess {
 public:
  RouterProcess();
  /// A connected bare socket whose peer carries out `job` and then closes it.
  [[nodiscard]] int connectBare(const Job& job) const;

 private:
  [[nodiscard]] std::string bareEndpoint() const { return directory() / "bare.sock"; }
};

/// The router's own main, in the child process. Runs until it is killed.
int runRouterRole();

[[nodiscard]] std::uint64_t monotonicNanoseconds();

}  // namespace bench
